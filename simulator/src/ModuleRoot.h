/// The module's root file system: a tmpfs with the machine's programs and libraries bound in read-only.
///
/// It lies in the private mount namespace, so nothing of it is seen outside or outlives the program. Processes of the
/// module have it as their root; tests reach its files by the same paths through the functions here. Any thread.
#ifndef MODULE_ROOT_H
#define MODULE_ROOT_H

#include <sys/types.h>

#include <optional>
#include <string>

class ModuleRoot {
  public:
    /// Mounts the root. Throws std::runtime_error.
    ModuleRoot();
    /// Takes it down; its processes must have ended.
    ~ModuleRoot();
    ModuleRoot(const ModuleRoot&) = delete;
    ModuleRoot& operator=(const ModuleRoot&) = delete;

    /// The root's directory as the host sees it.
    const std::string& Path() const { return root; }
    /// Where the host finds a path of the module.
    std::string Outside(const std::string& path) const { return root + path; }
    /// Empty directory beside the root, where the attribute files are to be mounted.
    const std::string& AttributeDirectory() const { return attributes; }

    /// nullopt when it cannot be read.
    std::optional<std::string> ReadFile(const std::string& path) const;
    /// Replaces or creates the file, with its directories. The others throw std::runtime_error too when refused.
    void WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644);
    void MakeDirectory(const std::string& path);
    /// A file, or a directory with all below. Nothing there is no failure.
    void Remove(const std::string& path);
    bool Exists(const std::string& path) const;

    /// Shows a file or directory of the machine at a path of the module.
    void Bind(const std::string& outside, const std::string& path, bool readOnly);
    /// Puts a program of the machine into /usr/bin, in the place of another of that name; answers its path there.
    std::string Install(const std::string& program);

    /// Puts an empty file system of the given size over a directory: a disk that can be full.
    void LimitSpace(const std::string& directory, size_t bytes);
    /// Makes a directory refuse every change with EROFS.
    void MakeReadOnly(const std::string& directory);
    /// Takes the last LimitSpace or MakeReadOnly of the directory back.
    void Restore(const std::string& directory);

  private:
    void BindSystem();
    void MakeDevices();
    void LinkPrograms();

    std::string base;
    std::string root;
    std::string attributes;
};

#endif
