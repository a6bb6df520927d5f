/// The audio relay: on at once, off five seconds after it was asked for, so that the end of a call is still heard.
///
///   relay  timer  event         relay  timer
///   off    idle   on            on     idle
///   on     idle   off           on     armed for 5 s
///   on     armed  on            on     idle
///   on     armed  off           on     armed for 5 s again
///   on     armed  5 s pass      off    idle
#ifndef ECALL_UI_GPIO_RELAY_H
#define ECALL_UI_GPIO_RELAY_H

#include <csignal>

/// Switches the relay. With the external digital microphone it first runs the audio script with "start" or "stop" and
/// blocks until that ends. Any thread.
void ControlAudioRelay(bool SetRelayOn);
/// Arms the delayed switch-off anew (true), or takes it back (false). When there is no timer the relay is switched on:
/// better a speaker that stays on than a caller whom nobody hears.
void TimerAudioRelay(bool activateTimer);
/// Switches the relay off; called by the timer on a thread of its own.
void RelayTimer_callback(union sigval sig);

#endif
