/// Answers the ioctls that need hardware: I2C transfers and the private recovery command of the network interface.
///
/// A filter in the service's process makes the kernel ask here instead; the service notices nothing. The bus carries
/// the audio amplifier at 0x72 and the ADS1015 converter at 0x90 (write) and 0x91 (read); other addresses answer ENXIO.
/// All functions from any thread.
#ifndef IOCTL_SUPERVISOR_H
#define IOCTL_SUPERVISOR_H

#include <linux/filter.h>

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Descriptor.h"
#include "Fault.h"
#include "Journal.h"

class IoctlSupervisor {
  public:
    /// root  directory that the supervised processes have as their root; taken off the front of file names.
    IoctlSupervisor(Journal& journal, std::string root);
    ~IoctlSupervisor();
    IoctlSupervisor(const IoctlSupervisor&) = delete;
    IoctlSupervisor& operator=(const IoctlSupervisor&) = delete;

    /// The filter for the child; hand the listener that its installation yields to Serve. Throws std::runtime_error.
    static std::vector<sock_filter> Filter();
    /// Answers one process and its children from now on; takes the descriptor over.
    void Serve(int listener);

    uint8_t AmplifierRegister(uint8_t number) const;
    /// What the conversion register shows once channel (0 to 3) has been selected; sent high byte first.
    void SetConverterInput(unsigned channel, uint16_t value);

    /// pattern  matched with the shell's wildcards against the request as the journal shows it: "eth0 command 44",
    ///          "write 0x72 flags 0x0000: 01 41", or for reads "*read 0x91*". A fault's atMost means nothing here.
    void AddFault(const std::string& pattern, Fault fault);
    void ClearFaults();

  private:
    struct Request;
    struct Message;
    struct Answer;
    class Outbox;

    void Run(int listener);
    void AnswerNext(int listener, Outbox& outbox);
    Answer HandleI2c(const Request& request, const std::string& file);
    Answer HandleNetwork(const Request& request);
    std::string FileName(const Request& request) const;
    static bool ReadMessages(const Request& request, std::vector<Message>& messages);
    static std::string Print(const std::vector<Message>& messages);
    int Transfer(std::vector<Message>& messages);
    int TransferOne(Message& message);
    void WriteAmplifier(const std::string& data);
    void WriteConverter(const std::string& data);
    void ReadConverter(std::string& data) const;
    Fault Judge(const std::string& request);

    Journal& journal;
    const std::string root;
    Descriptor stop;
    mutable std::mutex mutex;  ///< guards all below but the threads
    std::array<uint8_t, 256> amplifier{};
    std::array<uint16_t, 4> converterInput{};
    uint16_t converterConfig = 0x8583;  ///< the chip's value after power-up
    uint8_t converterPointer = 0;
    std::vector<std::pair<std::string, Fault>> rules;
    std::vector<std::thread> threads;
};

#endif
