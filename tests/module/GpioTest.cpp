#include "GpioTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

Texts Lines(const std::string& text) {
    Texts lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// By the source: its own, or that of the scripts.
bool IsOfHardware(const std::string& source) {
    const auto isPart = [&source](const char* part) { return source.find(part) != std::string::npos; };
    return isPart("EcallUIGpio") || isPart("EcallUIapp_implMic") || isPart("Script.cpp");
}

std::string LineName(const std::string& path) {
    const std::size_t directory = path.rfind('/', path.rfind('/') - 1);
    return path.substr(directory + 1);
}

}  // namespace

void Configure(Module& module, const std::vector<std::pair<std::string, std::string>>& members) {
    std::string json;
    for (const auto& [key, value] : members) {
        json.append(json.empty() ? "\"" : ", \"").append(key).append("\": ").append(value);
    }
    module.root.WriteFile(file::kConfiguration, "{" + json + "}");
}

ModuleProcess& StartPerforming(Module& module, std::vector<std::string> operations) {
    return module.Start(HARDWARE_PROBE, std::move(operations));
}

Performed Perform(Module& module, const std::vector<std::string>& operations) {
    module.root.Remove(file::kTrace);
    ModuleProcess& probe = StartPerforming(module, operations);
    EXPECT_EQ(0, probe.WaitForEnd()) << module.journal.Dump();
    Performed performed{{}, HardwareMessages(module), {}};
    for (const std::string& line : Lines(probe.Errors())) {
        // Programs that the operations run may complain there too.
        const std::string operation = line.substr(0, line.find(" = "));
        if (line.starts_with("slept ")) {
            performed.sleeps.push_back(line);
        }
        if (std::ranges::find(operations, operation) != operations.end()) {
            performed.results.push_back(line);
        }
    }
    return performed;
}

Texts HardwareMessages(Module& module) {
    Texts messages;
    bool isOfHardware = false;
    for (const std::string& line : Lines(module.root.ReadFile(file::kTrace).value_or(""))) {
        const Entry entry = TraceTail::Parse(line);
        const bool goesOn = entry.subject.empty();
        isOfHardware = goesOn ? isOfHardware : IsOfHardware(entry.subject);
        if (isOfHardware) {
            messages.push_back(entry.text);
        }
    }
    return messages;
}

Texts WritesBelow(Module& module, const std::string& directory, uint64_t from) {
    Texts writes;
    for (const Entry& entry : module.journal.All(IsKind(Kind::Write), from)) {
        if (entry.subject.starts_with(directory) && entry.result >= 0) {
            writes.push_back(entry.subject.substr(directory.size() + 1) + " = " + entry.text);
        }
    }
    return writes;
}

Texts Writes(Module& module, uint64_t from) {
    Texts writes;
    for (const Entry& entry : module.journal.All(IsKind(Kind::Write), from)) {
        if (entry.result >= 0) {
            writes.push_back(LineName(entry.subject) + " = " + entry.text);
        }
    }
    return writes;
}

namespace {

void Start(Unit& unit, std::vector<std::pair<std::string, std::string>> members) {
    members.emplace_back("EcallMicrophoneSource", "0");
    Configure(unit.module, members);
    unit.module.StartService();
}

/// CRC-16 with polynomial 0x1021, starting from ones, bit by bit.
uint16_t Crc16OfBytes(const std::string& bytes) {
    uint32_t crc = 0xFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<uint32_t>(static_cast<unsigned char>(byte)) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021U : 0U);
        }
        crc &= 0xFFFF;
    }
    return static_cast<uint16_t>(crc);
}

}  // namespace

void Unit::Start(const std::vector<std::pair<std::string, std::string>>& members) {
    ASSERT_TRUE(peer.Start());
    ::Start(*this, members);
    const Entry closingPull = journal.Await(IsTraced("XirEcallapp_requestState "));
    journal.Await(IsTraced("SetGpioServiceState - exit"), closingPull.seq);
    AwaitIdleEventThread();
}

void Unit::StartAlone(std::vector<std::pair<std::string, std::string>> members) {
    members.emplace_back("ConnectEcallService", "false");
    ::Start(*this, std::move(members));
    journal.Await(IsTraced("InitGpio - exit"));
    AwaitIdleEventThread();
}

uint64_t Unit::Notify(uint32_t serviceState, uint32_t audioOutState) {
    const uint64_t mark = journal.Mark();
    peer.SetState({.serviceState = serviceState, .audioOutState = audioOutState});
    journal.Await(IsTraced("SetGpioServiceState - exit"), mark);
    return mark;
}

uint64_t Unit::Announce(const std::string& text) {
    const uint64_t mark = journal.Mark();
    module.uevents.Send({"change@/devices/any", "ACTION=change", text});
    AwaitIdleEventThread(journal.Await(IsTraced("NbReadyDescriptor = 1 "), mark).seq);
    return mark;
}

void Unit::AwaitIdleEventThread(uint64_t from) {
    journal.Await(IsTraced("Wait for an event (blocking wait) "), from);
}

void SaveState(Module& module, const SavedState& state) {
    std::string bytes;
    for (const bool field : {state.antennaSelected, state.antennaDetection, state.canTrigger}) {
        bytes += field ? '\1' : '\0';
    }
    const uint16_t crc = Crc16OfBytes(bytes);
    bytes += static_cast<char>(crc & 0xFF);
    bytes += static_cast<char>(crc >> 8);
    module.root.WriteFile(file::kState, bytes);
}

std::string StateFile(Module& module) {
    const std::string bytes = module.root.ReadFile(file::kState).value_or("");
    std::string text;
    for (const char byte : bytes.substr(0, 3)) {
        text += (text.empty() ? "" : " ") + std::to_string(byte);
    }
    return text;
}
