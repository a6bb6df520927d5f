// Stand-in of the module's audio library. Where the real one talks to the amplifier, this one reads what the amplifier
// would find from a file. Everything else of the audio library is left out.
#include "utaimas.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <string_view>

#include "speaker_status.h"

namespace {

constexpr size_t kTooLong = 32;  // bytes; a file of that length is not one number

UtaAudioFda803SpeakerStatus Failed(int error) {
    return {error, 0};
}

UtaAudioFda803SpeakerStatus ParseStatus(std::string_view text) {
    text = text.substr(0, text.find_last_not_of(" \t\n") + 1);
    int32_t status = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), status);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && status >= 0 ? UtaAudioFda803SpeakerStatus{0, status} : Failed(EBADMSG);
}

}  // namespace

UtaAudioFda803SpeakerStatus ReadSpeakerStatusFile(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return Failed(errno);
    }
    char text[kTooLong];
    const ssize_t length = read(fd, text, sizeof text);
    const int readError = length < 0 ? errno : 0;
    close(fd);
    if (readError != 0) {
        return Failed(readError);
    }
    const auto size = static_cast<size_t>(length);
    return size < kTooLong ? ParseStatus({text, size}) : Failed(EBADMSG);
}

UtaAudioFda803SpeakerStatus UtaGetAudioFda803SpeakerStatus(void) {
    return ReadSpeakerStatusFile(kSpeakerStatusFile);
}
