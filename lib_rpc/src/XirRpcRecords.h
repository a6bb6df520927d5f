/// How records and messages on the wire are made of each other. A service lists the pairs of fields of each record
/// once:
///
///     void EachField(Either<Wire> auto& w, Either<Record> auto& r, auto& copy) { copy(w.intvalue, r.intValue); ... }
///
/// and the copies here walk that list in either direction. Wire enumerations are never loaded or stored as such: a peer
/// may send any number, and a C++ enumeration must not hold one that it does not name.
#ifndef XIR_RPC_RECORDS_H
#define XIR_RPC_RECORDS_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "XirRpcTypes.h"
#include "xir_memory.h"

/// An empty record with one reference, the caller's; null without memory.
template <typename Record>
XirRecord<Record>* NewRecord() {
    void* block = nullptr;
    if (xir_allocate(&block, sizeof(XirRecord<Record>)) != 0) {
        return nullptr;
    }
    auto* const record = std::construct_at(static_cast<XirRecord<Record>*>(block));
    record->retain = xir_retain;
    record->release = xir_release;
    return record;
}

/// A copy of the text that lives as long as the block; null without memory.
inline const char* AttachText(void* block, const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = xir_allocate_and_attach(block, size);
    return copy == nullptr ? nullptr : static_cast<const char*>(std::memcpy(copy, text, size));
}

template <typename T, typename U>
concept Either = std::same_as<std::remove_const_t<T>, U>;  // const or not, by the direction of the copy

/// Wire to record. Numbers are cut to the size of the record's field; texts are copied into blocks of the record.
struct CopyToRecord {
    void* block = nullptr;  ///< the record's reference-counted block; null for a record without texts
    bool complete = true;   ///< false when memory for a text was missing

    template <typename Wire, typename Field>
    void operator()(const Wire& from, Field& to) const {
        if constexpr (std::is_enum_v<Wire>) {
            static_assert(sizeof from == sizeof to);
            std::memcpy(&to, &from, sizeof to);
        } else {
            to = static_cast<Field>(from);
        }
    }
    void operator()(char* const& from, const char*& to) {
        to = AttachText(block, from);
        complete = complete && to != nullptr;
    }
};

/// Record to wire. Texts are borrowed; a null text becomes an empty one.
struct CopyToWire {
    template <typename Wire, typename Field>
    void operator()(Wire& to, const Field& from) const {
        if constexpr (std::is_enum_v<Wire>) {
            static_assert(sizeof from == sizeof to);
            std::memcpy(&to, &from, sizeof to);
        } else {
            to = static_cast<Wire>(from);
        }
    }
    void operator()(char*& to, const char* const& from) const {
        to = const_cast<char*>(from == nullptr ? "" : from);  // packing does not write to it
    }
};

template <typename Wire, typename Record>
void FillMessage(Wire& message, const Record& record) {
    CopyToWire copy;
    EachField(message, record, copy);
}

/// Makes the caller's record of a message. Answers false without memory, then *out is unchanged.
template <typename Wire, typename Record>
bool MakeRecord(const Wire& message, XirRecord<Record>** out) {
    XirRecord<Record>* const record = NewRecord<Record>();
    if (record == nullptr) {
        return false;
    }
    CopyToRecord copy{record};
    EachField(message, static_cast<Record&>(*record), copy);
    if (!copy.complete) {
        record->release(record);
        return false;
    }
    *out = record;
    return true;
}

#endif
