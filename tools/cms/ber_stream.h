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

    // The content of an element that was stepped into.
    struct Level {
        bool indefinite;
        std::uint64_t end;
    };

    // Throws a Failure at the end of input.
    bool nextIs(unsigned char tag);
    // Steps into an element of this tag; throws a Failure if another one comes. Its end is not looked for, unless atEnd() is
    // asked.
    Level enter(unsigned char tag);
    // Whether nothing is left on this level; steps over what marks its end.
    bool atEnd(const Level& level);
    // The next element as a whole, its lengths and those of its parts in DER's form. A Failure if it has more than 1 MB, or too
    // many parts.
    Bytes element();
    // The content of an OCTET STRING under an implicit tag [0], whole or in segments, handed on in pieces.
    void octets(const std::function<void(ByteView)>& take);
    // The same of an OCTET STRING within an explicit tag [0].
    void wrappedOctets(const std::function<void(ByteView)>& take);

    [[noreturn]] void refuse() const;

private:
    Header header();
    unsigned char byte();
    void fill();
    void bytes(std::span<unsigned char> into);
    template <class Take>
    void forEachPart(const Header& outer, Take take);
    Bytes elementAfter(const Header& head, int depth, int& partsLeft);
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
