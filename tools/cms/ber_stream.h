// Reads BER (ITU-T X.690) from a file front to back: definite and indefinite lengths, content of any size.
#pragma once

#include "base/bytes.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace quelta::tools {

class BerStream {
public:
    // Fills `room` and returns the count; 0 means end of input.
    using Read = std::function<std::size_t(std::span<unsigned char> room)>;
    // `name` is the file's, for failures.
    BerStream(std::string name, Read read);

    struct Header {
        unsigned char tag;
        bool indefinite;
        std::uint64_t length;
    };

    // A level is the content of an element that was stepped into.
    struct Level {
        bool indefinite;
        std::uint64_t end;
    };

    // Throws a Failure at the end of input.
    bool nextIs(unsigned char tag);
    // Steps into an element of this tag; throws a Failure if another one comes. Only atEnd() looks for the end of the element.
    Level enter(unsigned char tag);
    // Returns whether the level has no more elements, and if so steps out of it.
    bool atEnd(const Level& level);
    // Returns the next element as a whole, with all lengths in DER's form. Throws a Failure if the element has more than 1 MB or
    // too many parts.
    Bytes element();
    // Hands the content of an OCTET STRING under an implicit tag [0] to `take`, whole or in segments, in pieces.
    void octets(const std::function<void(ByteView)>& take);
    // The same for an OCTET STRING within an explicit tag [0].
    void wrappedOctets(const std::function<void(ByteView)>& take);

    [[noreturn]] void refuse() const;

private:
    Header header();
    unsigned char byte();
    void fill();
    void bytes(std::span<unsigned char> into);
    template <class Take>
    void forEachPart(const Header& outer, Take take);
    Bytes elementAfter(const Header& head, int depth);
    void segments(const Header& outer, const std::function<void(ByteView)>& take, int depth);
    void pass(std::uint64_t length, const std::function<void(ByteView)>& take);

    std::string name_;
    Read read_;
    Bytes buffer_;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::uint64_t position_ = 0;
};

} // namespace quelta::tools
