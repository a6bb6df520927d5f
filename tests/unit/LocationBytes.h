/// A position on the wire, every field with a value of its own, and the record that it becomes.
#ifndef LOCATION_BYTES_H
#define LOCATION_BYTES_H

#include <string>

#include "ProtoBytes.h"

/// What tests vary.
struct LocationValues {
    std::string extraInfo = "fix of the antenna";
    double altitude = 35.1;
    int64_t weekNumber = 2288;
    uint64_t localTimestamp = 1'699'999'999'000;
    uint64_t receiveTimestamp = 1'699'999'999'999;
    uint64_t timestamp = 1'699'999'998'500;
    bool is2dFix = true;
    bool is3dFix = false;
    bool isValid = true;
};

inline ProtoBytes LocationBytes(const LocationValues& values = {}) {
    const ProtoBytes ellipse = ProtoBytes().Float(1, 8.5F).Float(2, 9.5F).Float(3, 10.5F);
    const ProtoBytes coordinates = ProtoBytes()
                                       .Double(1, values.altitude)
                                       .Double(2, 2.3522219)
                                       .Double(3, 48.8566140)
                                       .Float(4, 4.5F)
                                       .Float(5, 5.5F)
                                       .Float(6, 6.5F)
                                       .Float(7, 7.5F)
                                       .Message(8, ellipse)
                                       .Float(9, 11.5F)
                                       .Float(10, 12.5F)
                                       .Float(11, 13.5F)
                                       .Float(12, 14.5F)
                                       .Number(13, values.is2dFix ? 1 : 0)
                                       .Number(14, values.is3dFix ? 1 : 0);
    const ProtoBytes date = ProtoBytes().Double(1, 345600.25).Double(2, 18.75).Number(3, values.weekNumber);
    const ProtoBytes time = ProtoBytes()
                                .Message(1, date)
                                .Number(2, static_cast<int64_t>(values.localTimestamp))
                                .Number(3, static_cast<int64_t>(values.receiveTimestamp))
                                .Number(4, static_cast<int64_t>(values.timestamp));
    return ProtoBytes()
        .Text(1, values.extraInfo)
        .Float(2, 0.5F)
        .Float(3, 1.5F)
        .Float(4, 2.5F)
        .Float(5, 3.5F)
        .Message(6, coordinates)
        .Float(7, 15.5F)
        .Float(8, 16.5F)
        .Message(9, time)
        .Number(10, values.isValid ? 1 : 0);
}

#endif
