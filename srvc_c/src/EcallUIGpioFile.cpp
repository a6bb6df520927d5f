#include "EcallUIGpioFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "FileDescriptor.h"

AttributeWrite WriteAttribute(const char* path, int flags, std::string_view text) {
    AttributeWrite result;
    const FileDescriptor file(open(path, flags | O_CLOEXEC));
    result.opened = file.IsOpen();
    if (result.opened) {
        result.count = static_cast<int>(write(file.get(), text.data(), text.size()));
        result.whole = result.count == static_cast<int>(text.size());
    }
    result.error = result.count < 0 ? errno : 0;
    return result;
}

AttributeRead ReadAttribute(const char* path, std::size_t limit) {
    AttributeRead result;
    const FileDescriptor file(open(path, O_RDONLY | O_CLOEXEC));
    result.opened = file.IsOpen();
    if (result.opened) {
        result.count = static_cast<int>(read(file.get(), result.text.data(), std::min(limit, kAttributeReadMax)));
    }
    result.error = result.count < 0 ? errno : 0;
    return result;
}
