/// The device table and the access to single lines through their attribute files.
///
/// No operation keeps a file open, takes a lock or retries; each may block as long as the driver does. Any thread.
#ifndef ECALL_UI_GPIO_H
#define ECALL_UI_GPIO_H

#include <cstddef>
#include <cstdint>

/// Rows of the device table; lines unless said otherwise.
enum EcallGpioId : uint32_t {
    kGpioSosButtonDet = 0,
    kGpioGnssSystemOn = 1,
    kGpioGnssAntDet = 2,
    kGpioBatPresent = 3,
    kGpioEcallNrqst = 4,  ///< the eCall push-button
    kPwmEcallEns = 5,     ///< the airbag sensor's PWM detector, a device with several attributes
    kGpioAudioRelay = 6,
    kGpioAntSelect = 7,
    kGpioEcallNlock = 8,
    kGpioAmpNstby = 9,
    kGpioGnssOnOff = 10,
    kGpioGnssBootSel = 11,
    kGpioAmpHwmute = 12,
    kPwmEcallLed = 13,    ///< the LED's PWM device
    kIsrEcallButton = 14  ///< the button's interrupt device
};

constexpr std::size_t kGpioPathSize = 128;

/// Copies the path of a row to out, completing the name of a device whose directory has a suffix chosen by the kernel.
/// A completed name is kept until the process ends, even when the device goes. Answers 0; -1 leaves out alone.
int GpioGetDevicePath(uint32_t id, char* out, std::size_t size);
/// Composes the path of one attribute of a device. Answers 0; -1 leaves out alone.
int GpioGetDeviceFilePath(char* out, std::size_t size, uint32_t id, const char* attribute);

/// Answers the line's value, which is its first character less '0' without a range check; -1 when it cannot be read.
int32_t GpioRead(uint32_t id);
/// Answers 0; 1 when the line did not take the value. Only 0 and 1 are values of a line.
uint32_t GpioWrite(uint32_t id, uint8_t value);
/// Whether the eCall button is pressed, by its configured active level. A line that cannot be read is not pressed.
bool IsEcallButtonPressed();
/// The sensor's status, numbered as the codes 0 to 4 of EcallHwEvent; -1 when it cannot be read.
int32_t GpioRead_EcallEns();
/// Tells the LED device which external line enables it. activeLow changes nothing: the device is always told "0".
void ExternalGpio_enable(const char* value, uint8_t activeLow);

#endif
