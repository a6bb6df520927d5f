/// The module's lines and devices by the paths under which the service finds them, and what a healthy module shows
/// there.
#ifndef HARDWARE_H
#define HARDWARE_H

#include <string>
#include <vector>

namespace line {
inline constexpr char kSosButton[] = "/sys/class/ecall_gpio/sos-button-det/value";
inline constexpr char kGnssSystemOn[] = "/sys/class/ecall_gpio/gnss-system-on/value";
inline constexpr char kGnssAntenna[] = "/sys/class/ecall_gpio/gnss-ant-det/value";
inline constexpr char kBatteryPresent[] = "/sys/class/ecall_gpio/bat-present/value";
inline constexpr char kButton[] = "/sys/class/ecall_gpio/ecall-nrqst/value";
inline constexpr char kRelay[] = "/sys/class/ecall_gpio/lte-ecall-relay/value";
inline constexpr char kGpio22[] = "/sys/class/ecall_gpio/UNUSE_GPIO22/value";
inline constexpr char kNlock[] = "/sys/class/ecall_gpio/ecall-nlock/value";
inline constexpr char kAmplifierStandby[] = "/sys/class/ecall_gpio/amp-nstby/value";
inline constexpr char kGnssOnOff[] = "/sys/class/ecall_gpio/gnss-on-off/value";
inline constexpr char kGnssBoot[] = "/sys/class/ecall_gpio/gnss-boot-sel/value";
inline constexpr char kAmplifierMute[] = "/sys/class/ecall_gpio/amp-hwmute/value";
inline constexpr char kAntennaNumber[] = "/dev/vantu_gpio_num";
inline constexpr char kAntennaDirection[] = "/dev/vantu_gpio_dir";
inline constexpr char kAntennaValue[] = "/dev/vantu_gpio_value";
inline constexpr char kAdc1[] = "/sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw";  ///< microvolts; the antenna
inline constexpr char kAdc2[] = "/sys/bus/iio/devices/iio:device0/out_temp_systemp2_raw";
inline constexpr char kAdc3[] = "/sys/bus/iio/devices/iio:device0/out_temp_battemp0_raw";
inline constexpr char kDtrEnable[] = "/sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr_enable";
inline constexpr char kDtr[] = "/sys/bus/platform/drivers/serial-usif-xgold/e4a00000.usif2/dtr";  ///< active low
inline constexpr char kSpeaker[] = "/run/utaimas/fda803-speaker";  ///< diagnosis of the audio library, 0: connected
}  // namespace line

namespace file {
inline constexpr char kConfiguration[] = "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json";
inline constexpr char kState[] = "/data/etc/ecall/XirEcallUIappSrvc_Status.bin";
inline constexpr char kTraceDirectory[] = "/var/logs/ecall";
inline constexpr char kTrace[] = "/var/logs/ecall/XirEcallUIappSrvc_traces.txt";
inline constexpr char kAudioScript[] = "/etc/init.d/launch-audio-for-ecall.sh";
inline constexpr char kMicrophoneTestScript[] = "/usr/bin/ecall_analog_mic_test.sh";
}  // namespace file

/// Devices whose directory name ends in a suffix that the kernel chose at boot.
struct DeviceNames {
    std::string sensor = "/sys/devices/vantu_pwm.0";
    std::string led = "/sys/devices/vantu_pwm_led.1";
    std::string buttonInterrupt = "/sys/devices/ecall_isr.2";
};

struct AttributeRow {
    std::string path;
    std::string value;
};

/// Every attribute file of a healthy module at rest: sensor at 10 Hz, button released, antenna and speaker connected,
/// DTR watched and not asserted. In the order in which directories list them.
std::vector<AttributeRow> HealthyAttributes(const DeviceNames& devices);

#endif
