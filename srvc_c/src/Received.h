/// A record that a service sent, with one owner that releases it.
#ifndef RECEIVED_H
#define RECEIVED_H

#include <memory>

#include "XirRpcTypes.h"

struct ReleaseRecord {
    template <typename Record>
    void operator()(Record* record) const {
        record->release(record);
    }
};

/// Null when none came.
template <typename T>
using Received = std::unique_ptr<XirRecord<T>, ReleaseRecord>;

#endif
