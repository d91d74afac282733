#pragma once

#include "base/bytes.h"
#include "base/wipe.h"

namespace quelta {

// For what must not stay in memory: wiped when it goes.
class WorkBuffer {
public:
    explicit WorkBuffer(std::size_t size) : bytes_(size) {}
    WorkBuffer(const WorkBuffer&) = delete;
    WorkBuffer& operator=(const WorkBuffer&) = delete;
    ~WorkBuffer() { wipe(bytes_.data(), bytes_.size()); }

    std::span<unsigned char> room() { return bytes_; }

private:
    Bytes bytes_;
};

} // namespace quelta
