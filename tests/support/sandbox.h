// A scratch directory per test: the sandbox build of the daemon resolves its
// root, tmp and device paths relative to the working directory, so a test
// that enters a Sandbox can run the real code without touching the machine.
#pragma once
#include <string>

std::string readFile(const std::string &path);  // whole file, empty if missing
void writeFile(const std::string &path, const std::string &content);

class Sandbox {
 public:
  Sandbox();   // creates <tmp>/qv-sandbox-XXXXXX with root/, tmp/ and dev/, and enters it
  ~Sandbox();  // leaves it, removes the shared state segment keyed on it, deletes it
  Sandbox(const Sandbox &) = delete;
  Sandbox &operator=(const Sandbox &) = delete;

  const std::string &path() const { return path_; }
  std::string file(const std::string &relative) const { return path_ + "/" + relative; }
  std::string read(const std::string &relative) const { return readFile(file(relative)); }
  void write(const std::string &relative, const std::string &content) const {
    writeFile(file(relative), content);
  }

 private:
  std::string path_, previous_;
};
