// What both sides of the location service's interface have agreed on: every name and number of its messages and
// methods. The descriptors say what the generated code does; the tables here are written by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Schema.h"
#include "lib_Location/src/location.pb-c.h"

namespace {

const SchemaRows kEnums = {
    {"GetLastKnownPositionErrorEnum", "NO_POSITION_AVAILABLE 0"},
    {"GetCurrentPositionErrorEnum", "TIME_OUT 0"},
    {"ProviderStateEnum",
     "AVAILABLE 0, DEEP_LOW_POWER 1, ERROR 2, FORCED_OFF 3, LOW_POWER 4, STARTUP 5, UNAVAILABLE 6, UPDATE 7"},
};

const SchemaRows kMessages = {
    {"CoordinateStruct", "1 altitude double, 2 longitude double, 3 latitude double"},
    {"ErrorEllipseStruct", "1 axis_orientation float, 2 semi_major_axis float, 3 semi_minor_axis float"},
    {"QualifiedCoordinateStruct",
     "1 altitude double, 2 longitude double, 3 latitude double, 4 altitude_msl float, 5 ecefx float, 6 ecefy float, 7 "
     "ecefz float, 8 error_ellipse ErrorEllipseStruct, 9 horizontal_accuracy float, 10 latitude_accuracy float, 11 "
     "longitude_accuracy float, 12 vertical_accuracy float, 13 valid_2d_fix bool, 14 valid_3d_fix bool"},
    {"GpsDateStruct", "1 tow double, 2 utc_correction double, 3 week_number uint32"},
    {"TimeInfoStruct",
     "1 gps_date GpsDateStruct, 2 local_timestamp uint64, 3 receive_timestamp uint64, 4 timestamp uint64"},
    {"LocationStruct",
     "1 extra_info string, 2 heading float, 3 heading_accuracy float, 4 heading_mag float, 5 heading_mag_accuracy "
     "float, 6 qualified_coordinates QualifiedCoordinateStruct, 7 speed float, 8 speed_accuracy float, 9 time_info "
     "TimeInfoStruct, 10 valid_flag bool"},
    {"GetLastKnownPositionRequest", ""},
    {"GetLastKnownPositionResponse",
     "1 responsecode uint32, 2 error_code GetLastKnownPositionErrorEnum in a oneof, 3 value "
     "GetLastKnownPositionResponse.ValueMsg in a oneof"},
    {"GetLastKnownPositionResponse.ValueMsg", "1 lastKnownLocation LocationStruct"},
    {"GetCurrentPositionRequest", "1 timeoutInMs uint32"},
    {"GetCurrentPositionResponse",
     "1 responsecode uint32, 2 error_code GetCurrentPositionErrorEnum in a oneof, 3 value "
     "GetCurrentPositionResponse.ValueMsg in a oneof"},
    {"GetCurrentPositionResponse.ValueMsg", "1 location LocationStruct"},
    {"CloseRequest", ""},
    {"NotifyTheCurrentLocationUpdate", "2 location LocationStruct"},
    {"NotifyTheCurrentProviderStateUpdate", "2 status ProviderStateEnum"},
};

const std::vector<SchemaMethod> kMethods = {
    {"getLastKnownPosition", "GetLastKnownPositionRequest", "GetLastKnownPositionResponse"},
    {"getCurrentPosition", "GetCurrentPositionRequest", "GetCurrentPositionResponse"},
    {"close", "CloseRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"notifyTheCurrentLocation", "com.vantu.ms.protobuf.VoidResponse", "NotifyTheCurrentLocationUpdate"},
    {"notifyTheCurrentProviderState", "com.vantu.ms.protobuf.VoidResponse", "NotifyTheCurrentProviderStateUpdate"},
    {"subscribe", "com.vantu.ms.protobuf.SubscribeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"unsubscribe", "com.vantu.ms.protobuf.SubscribeRequest", "com.vantu.ms.protobuf.VoidResponse"},
    {"getLocationProviderVersion", "com.vantu.ms.protobuf.GetRemoteVersionRequest",
     "com.vantu.ms.protobuf.GetRemoteVersionResponse"},
};

const ProtobufCServiceDescriptor& kService = com__vantu__ms__location__location_provider__descriptor;

TEST(LocationSchema, EnumerationsHaveTheseValues) {
    EXPECT_EQ(kEnums, Schema(kService).enums);
}

TEST(LocationSchema, MessagesHaveTheseFieldsAndAllButThoseOfAOneofAreRequired) {
    Schema schema(kService);
    schema.Add(com__vantu__ms__location__coordinate_struct__descriptor);  // in no other message

    EXPECT_EQ(WithBaseMessages(kMessages), schema.messages);
}

TEST(LocationSchema, MethodsHaveTheseIndices) {
    EXPECT_STREQ("com.vantu.ms.location.LocationProvider", kService.name);
    EXPECT_EQ(kMethods, Schema(kService).methods);
}

}  // namespace
