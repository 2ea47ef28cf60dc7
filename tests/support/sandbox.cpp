#include "support/sandbox.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

Sandbox::Sandbox() {
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof cwd)) previous_ = cwd;
  const char *base = getenv("TMPDIR");
  std::string templ = std::string(base && *base ? base : "/tmp") + "/qv-sandbox-XXXXXX";
  if (!mkdtemp(templ.data())) ADD_FAILURE() << "cannot create a sandbox directory";
  path_ = templ;
  for (const char *sub : {"root", "tmp", "dev"}) mkdir((path_ + "/" + sub).c_str(), 0755);
  if (chdir(path_.c_str()) != 0) ADD_FAILURE() << "cannot enter " << path_;
}

Sandbox::~Sandbox() {
  const key_t key = ftok((path_ + "/root").c_str(), 66);
  const int id = key == -1 ? -1 : shmget(key, 0, 0);
  if (id != -1) shmctl(id, IPC_RMID, nullptr);
  if (!previous_.empty()) (void)!chdir(previous_.c_str());
  if (getenv("QV_KEEP_SANDBOX") == nullptr)
    (void)!system(("rm -rf '" + path_ + "'").c_str());
}

std::string Sandbox::read(const std::string &relative) const {
  std::ifstream in(file(relative), std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void Sandbox::write(const std::string &relative, const std::string &content) const {
  std::ofstream out(file(relative), std::ios::binary);
  out << content;
}
