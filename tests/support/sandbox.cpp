#include "support/sandbox.h"

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

std::string readFile(const std::string &path) {
  std::stringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

Sandbox::Sandbox() {
  char cwd[PATH_MAX];
  if (getcwd(cwd, sizeof cwd)) previous_ = cwd;
  const char *base = getenv("TMPDIR");
  path_ = std::string(base && *base ? base : "/tmp") + "/qv-sandbox-XXXXXX";
  if (!mkdtemp(path_.data())) ADD_FAILURE() << "cannot create a sandbox directory";
  for (const char *sub : {"root", "tmp", "dev"}) mkdir(file(sub).c_str(), 0755);
  if (chdir(path_.c_str()) != 0) ADD_FAILURE() << "cannot enter " << path_;
}

Sandbox::~Sandbox() {
  const key_t key = ftok(file("root").c_str(), 66);
  const int id = key == -1 ? -1 : shmget(key, 0, 0);
  if (id != -1) shmctl(id, IPC_RMID, nullptr);
  if (!previous_.empty()) (void)!chdir(previous_.c_str());
  if (getenv("QV_KEEP_SANDBOX") == nullptr) (void)!system(("rm -rf '" + path_ + "'").c_str());
}

void writeFile(const std::string &path, const std::string &content) {
  std::ofstream(path, std::ios::binary) << content;
}
