/// The serial port's DTR line, and the recovery of the sensor's interrupt through the network driver.
#ifndef ECALL_UI_GPIO_DTR_H
#define ECALL_UI_GPIO_DTR_H

#include <cstdint>

/// Answers 1 when DTR is monitored and asserted, 0 when not, -1 when it cannot be read. Runs up to two shell commands
/// and blocks until they end; any thread.
int32_t ReadDtrStatus();

/// The thread that recovers a lost interrupt. Whoever starts it has cleared GpioIrqRecovery; it sets the flag again at
/// its end, unless the driver refused the first command: then there is nothing to hope for before a restart.
/// Each recovery leaves one descriptor open.
void GpioRecoveryThread();

#endif
