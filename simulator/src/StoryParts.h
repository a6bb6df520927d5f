/// What several stories are made of: things that happen to the unit, what it shows, and whole scenes.
#ifndef STORY_PARTS_H
#define STORY_PARTS_H

#include <string>
#include <vector>

#include "Story.h"

// Each is one thing that happens to the unit.

/// Throws std::runtime_error when the service's port cannot be bound.
void StartEcallService(StoryWorld& world);
/// The eCall service first: the unit waits for it.
void SwitchOn(StoryWorld& world);
void SensorAt10Hz(StoryWorld& world);
void SensorAt1kHz(StoryWorld& world);
void HoldButton(StoryWorld& world);
void ReleaseButton(StoryWorld& world);
void AnsweringPointHangsUp(StoryWorld& world);
void AskForSelfTest(StoryWorld& world);

// What the unit shows.

inline const Expected kLedIdle{Who::Led, "25 %, steady"};
inline const Expected kLedActive{Who::Led, "90 % / 0 %, every 1000 ms"};
inline const Expected kLocked{Who::Line, "ECALL_nLOCK 1"};
inline const Expected kUnlocked{Who::Line, "ECALL_nLOCK 0"};
inline const Expected kRelayOn{Who::Relay, "audio relay on"};
inline const Expected kRelayOff{Who::Relay, "audio relay off"};
inline const Expected kAntennaSelected{Who::Antenna, "eCall antenna selected"};
inline const Expected kListening{Who::Trace, "Wait for an event"};
inline const Expected kNoCall{Who::Rpc, "-> triggerEcall"};
inline const Expected kServiceIdle{Who::Rpc, "<= Available_Idle, call Inactive, audio Muted"};

// Scenes.

/// The unit is switched on beside a service that is idle, and comes up.
Scene SwitchOnScene();
/// What a call looks like from its trigger until people talk.
Scene CallScene(std::string tell, void (*act)(StoryWorld&), bool automatic);
/// The call that a crash makes.
Scene CrashScene();
/// The call ends, and the unit is idle again.
Scene HangUpScene();

// Stories with a file of their own, to be listed behind those of calls and devices.

std::vector<Story> PositionStories();
std::vector<Story> ParameterStories();

#endif
