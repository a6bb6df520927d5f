/// Protobuf messages written by hand, so that tests see field numbers and encodings and not the generated code's
/// opinion.
#ifndef PROTO_BYTES_H
#define PROTO_BYTES_H

#include <bit>
#include <cstdint>
#include <string>

/// Fields appear in the order of the calls: ProtoBytes().Number(1, 53).Text(2, "abc").bytes
struct ProtoBytes {
    std::string bytes;

    /// bool, int32, uint32, uint64 and enumerations; negative values as their 64-bit two's complement.
    ProtoBytes& Number(unsigned field, int64_t value) {
        return Varint(field << 3).Varint(static_cast<uint64_t>(value));
    }
    ProtoBytes& Double(unsigned field, double value) {
        return Varint(field << 3 | 1).Fixed(std::bit_cast<uint64_t>(value), 8);
    }
    ProtoBytes& Float(unsigned field, float value) {
        return Varint(field << 3 | 5).Fixed(std::bit_cast<uint32_t>(value), 4);
    }
    ProtoBytes& Text(unsigned field, const std::string& text) {
        Varint(field << 3 | 2).Varint(text.size());
        bytes += text;
        return *this;
    }
    ProtoBytes& Message(unsigned field, const ProtoBytes& message) { return Text(field, message.bytes); }

    ProtoBytes& Varint(uint64_t value) {
        for (; value >= 0x80; value >>= 7) {
            bytes += static_cast<char>(value | 0x80);
        }
        bytes += static_cast<char>(value);
        return *this;
    }
    /// Little-endian.
    ProtoBytes& Fixed(uint64_t value, int size) {
        for (; size > 0; --size, value >>= 8) {
            bytes += static_cast<char>(value);
        }
        return *this;
    }
};

#endif
