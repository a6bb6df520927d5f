/// The file in which the stand-in finds the amplifier's diagnosis.
#ifndef SPEAKER_STATUS_H
#define SPEAKER_STATUS_H

#include "utaimas.h"

constexpr const char* kSpeakerStatusFile = "/run/utaimas/fda803-speaker";

/// Reads one decimal status, 0 or more, which blanks and one line end may follow.
/// error of the answer: 0; the errno of the step that failed (ENOENT: no file); EBADMSG when it holds something else.
UtaAudioFda803SpeakerStatus ReadSpeakerStatusFile(const char* path);

#endif
