/// The eCall LED: a PWM device with two duty-cycle configurations between which it can toggle by itself.
#ifndef ECALL_UI_GPIO_LED_H
#define ECALL_UI_GPIO_LED_H

#include <cstdint>

/// Loads one pattern. blicking12PeriodInMs is how long each of the two brightnesses shows; 0: brightness 1 for good.
/// Answers 0, also when the LED is not used; 1 when a step failed, which leaves the device as far as it got.
/// No lock: of two calls at once, the one that ends last leaves its pattern. Any thread.
uint32_t SetGpioEcallLed(uint32_t periodMs, uint32_t brightness1PerCent, uint32_t brightness2PerCent,
                         uint32_t blicking12PeriodInMs);
/// Switches the LED output on or off, whatever pattern is loaded. Answers 0, also when the LED is not used, or 1.
uint32_t SetGpioEnableEcallLed(uint8_t enable);

/// The configured patterns.
enum class LedPattern : uint8_t { Unchanged, Idle, Active, Error };
void ShowLedPattern(LedPattern pattern);

/// Nanoseconds of a PWM period. The product has 32 bits: a period above 4294 ms wraps.
uint64_t LedPeriodNs(uint32_t periodMs);
/// Nanoseconds per period for which the LED is lit: never 0, never just the whole period, and longer than the period
/// for a brightness above 100.
uint64_t LedDutyNs(uint32_t brightnessPerCent, uint64_t periodNs);

#endif
