/// Audio services of the module: the speaker diagnosis of the FDA803 amplifier.
#ifndef UTAIMAS_H
#define UTAIMAS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { UTA_AUDIO_SPEAKER_CONNECTED = 0, UTA_AUDIO_SPEAKER_DISCONNECTED = 1, UTA_AUDIO_SPEAKER_SHORTCIRCUIT = 2 };

typedef struct {
    int32_t error;   ///< 0: the diagnosis was made; otherwise status means nothing
    int32_t status;  ///< UTA_AUDIO_SPEAKER_
} UtaAudioFda803SpeakerStatus;

/// Asks the amplifier what it finds at its speaker outputs. May block for the time of the diagnosis; any thread.
/// The open stand-in reads "/run/utaimas/fda803-speaker": one decimal status, and perhaps a line end. Its error is an
/// errno: ENOENT without the file, EBADMSG when the file holds anything else.
UtaAudioFda803SpeakerStatus UtaGetAudioFda803SpeakerStatus(void);

#ifdef __cplusplus
}
#endif

#endif
