/// A path for a local socket in a folder of its own, which goes with the object.
#ifndef SCRATCH_SOCKET_H
#define SCRATCH_SOCKET_H

#include <cstdlib>
#include <filesystem>
#include <string>

class ScratchSocket {
  public:
    ScratchSocket() {
        std::string pattern = std::filesystem::temp_directory_path() / "ecallui-XXXXXX";
        folder = mkdtemp(pattern.data());
    }
    ScratchSocket(const ScratchSocket&) = delete;
    ScratchSocket& operator=(const ScratchSocket&) = delete;
    ~ScratchSocket() { std::filesystem::remove_all(folder); }

    std::string Path() const { return folder + "/peer"; }
    std::string Url() const { return "xirfile://" + Path(); }

  private:
    std::string folder;
};

#endif
