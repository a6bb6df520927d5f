#include "UiPeer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "UiFields.h"
#include "lib_c/src-gen/ecallUIapp.pb-c.h"

const PeerService kUiService{&com__vantu__ecalluiapp__iecall_uiapp__descriptor, kUiInterfaceVersion, 1,
                             "com.vantu.ecalluiapp.iecalluiapp"};

namespace {

/// The member that counts for a parameter that holds such a value.
UiValue MemberLike(const UiValue& held, const Com__Vantu__Ecalluiapp__TCfgParamValue& triple) {
    if (std::holds_alternative<bool>(held)) {
        return triple.boolvalue != 0;
    }
    if (std::holds_alternative<int32_t>(held)) {
        return triple.intvalue;
    }
    return std::string(triple.strvalue);
}

}  // namespace

ProtoBytes TripleOf(const UiValue& value) {
    const auto* const boolean = std::get_if<bool>(&value);
    const auto* const number = std::get_if<int32_t>(&value);
    const auto* const text = std::get_if<std::string>(&value);
    return ProtoBytes()
        .Number(1, boolean != nullptr && *boolean ? 1 : 0)
        .Number(2, number != nullptr ? *number : 0)
        .Text(3, text != nullptr ? *text : "");
}

std::string GetRequest(int32_t number) {
    return ProtoBytes().Number(1, number).bytes;
}

std::string SetRequest(int32_t number, const UiValue& value) {
    return ProtoBytes().Number(1, number).Message(2, TripleOf(value)).bytes;
}

std::string GetReply(const UiValue& value, int64_t code) {
    return ProtoBytes().Number(1, code).Message(2, TripleOf(value)).bytes;
}

UiPeer::UiPeer() {
    for (const ConfigurationField* field : Parameters()) {
        values[field->number] = DefaultOf(*field);
    }
    server.Handle(kUiGet, [this](const std::string& request) { return Get(request); });
    server.Handle(kUiSet, [this](const std::string& request) { return Set(request); });
    server.Answer(kUiVersion, ProtoBytes().Number(1, 0).Text(2, "0.1.0-r1, V0.22").bytes);
    server.Answer(kUiMicTest, ProtoBytes().Number(1, 0).Float(2, 12.5F).bytes);
}

UiValue UiPeer::Held(const std::string& name) {
    const std::lock_guard lock(mutex);
    return values.at(FieldNamed(name).number);
}

void UiPeer::Hold(const std::string& name, const UiValue& value) {
    const std::lock_guard lock(mutex);
    values.at(FieldNamed(name).number) = value;
}

void UiPeer::OnSet(std::function<UiValue(const UiValue& value)> change) {
    const std::lock_guard lock(mutex);
    onSet = std::move(change);
}

size_t UiPeer::SetCount() const {
    const auto requests = server.Requests();
    return static_cast<size_t>(std::ranges::count(requests, kUiSet, &PeerRequest::method));
}

std::string UiPeer::Get(const std::string& request) {
    const std::lock_guard lock(mutex);
    for (const auto& [number, value] : values) {
        if (request == GetRequest(number)) {
            return GetReply(value);
        }
    }
    return GetReply(false);
}

std::string UiPeer::Set(const std::string& request) {
    auto* const unpacked = com__vantu__ecalluiapp__set_ui_cfg_parameter_request__unpack(
        nullptr, request.size(), reinterpret_cast<const uint8_t*>(request.data()));
    const std::lock_guard lock(mutex);
    UiValue& held = values.at(unpacked->cfgparamname);
    const UiValue value = MemberLike(held, *unpacked->paramvalue);
    held = onSet ? onSet(value) : value;
    com__vantu__ecalluiapp__set_ui_cfg_parameter_request__free_unpacked(unpacked, nullptr);
    return ProtoBytes().Number(1, 0).bytes;
}
