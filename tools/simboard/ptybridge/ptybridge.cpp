// quenvarile-ptybridge: a null-modem cable between two pseudo-terminals.
//
// Creates two pseudo-terminal pairs, links their slave ends to the two given
// paths (for example dev/ttyS1 for the daemon and dev/host for the host
// console) and relays every byte from one to the other until SIGINT/SIGTERM,
// then removes the links. Both ends are raw 8-bit lines.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kChunkBytes = 4096;

volatile sig_atomic_t stopRequested = 0;
void onStop(int) { stopRequested = 1; }

struct End {
  const char *link;
  int master = -1;
  int slave = -1;  // kept open so the master never sees a hang-up between users
};

bool openEnd(End *end) {
  end->master = posix_openpt(O_RDWR | O_NOCTTY);
  if (end->master < 0 || grantpt(end->master) != 0 || unlockpt(end->master) != 0) return false;
  const char *name = ptsname(end->master);
  if (name == nullptr) return false;
  end->slave = open(name, O_RDWR | O_NOCTTY);
  if (end->slave < 0) return false;
  termios tio;
  if (tcgetattr(end->slave, &tio) == 0) {
    cfmakeraw(&tio);
    tcsetattr(end->slave, TCSANOW, &tio);
  }
  unlink(end->link);
  if (symlink(name, end->link) != 0) {
    fprintf(stderr, "quenvarile-ptybridge: cannot link %s: %s\n", end->link, strerror(errno));
    return false;
  }
  return true;
}

// Copies what is readable on `from` to `to`; false when `from` is gone.
bool relay(const End &from, const End &to) {
  char buf[kChunkBytes];
  ssize_t got = read(from.master, buf, sizeof buf);
  if (got < 0) return errno == EAGAIN || errno == EINTR || errno == EIO;
  for (ssize_t done = 0; done < got;) {
    ssize_t put = write(to.master, buf + done, static_cast<size_t>(got - done));
    if (put < 0) {
      if (errno == EINTR || errno == EAGAIN) continue;
      return false;
    }
    done += put;
  }
  return got > 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr,
            "usage: quenvarile-ptybridge LINK_A LINK_B\n"
            "  links two new pseudo-terminals at the given paths and relays between them\n");
    return 2;
  }
  End a{argv[1]}, b{argv[2]};
  if (!openEnd(&a) || !openEnd(&b)) {
    fprintf(stderr, "quenvarile-ptybridge: cannot create the pseudo-terminals\n");
    unlink(a.link);
    unlink(b.link);
    return 1;
  }
  signal(SIGINT, onStop);
  signal(SIGTERM, onStop);
  signal(SIGPIPE, SIG_IGN);
  printf("quenvarile-ptybridge: %s <-> %s\n", a.link, b.link);
  fflush(stdout);

  while (!stopRequested) {
    pollfd fds[2] = {{a.master, POLLIN, 0}, {b.master, POLLIN, 0}};
    int ready = poll(fds, 2, 200);
    if (ready < 0 && errno != EINTR) break;
    if (ready <= 0) continue;
    if ((fds[0].revents & POLLIN) && !relay(a, b)) break;
    if ((fds[1].revents & POLLIN) && !relay(b, a)) break;
  }
  unlink(a.link);
  unlink(b.link);
  return 0;
}
