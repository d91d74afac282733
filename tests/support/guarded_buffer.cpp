#include "support/guarded_buffer.h"

#include <algorithm>
#include <new>

namespace quelta::test {

namespace {

constexpr std::size_t pageSize = 4096;

std::size_t pagesFor(std::size_t size)
{
    return (size + pageSize - 1) / pageSize * pageSize;
}

// As many accessible pages as are needed, and one that is not.
void* allocate(std::size_t size)
{
    const std::size_t usable = pagesFor(size);
    void* pages = VirtualAlloc(nullptr, usable + pageSize, MEM_RESERVE, PAGE_NOACCESS);
    if (!pages || (usable != 0 && !VirtualAlloc(pages, usable, MEM_COMMIT, PAGE_READWRITE))) throw std::bad_alloc();
    return pages;
}

} // namespace

GuardedBuffer::GuardedBuffer(std::size_t size, unsigned char fill)
    : pages_(allocate(size)), begin_(static_cast<unsigned char*>(pages_) + pagesFor(size) - size), size_(size)
{
    std::fill_n(begin_, size_, fill);
}

GuardedBuffer::GuardedBuffer(ByteView content) : GuardedBuffer(content.size())
{
    std::ranges::copy(content, begin_);
}

GuardedBuffer::~GuardedBuffer()
{
    VirtualFree(pages_, 0, MEM_RELEASE);
}

bool GuardedBuffer::untouchedFrom(std::size_t from) const
{
    return std::all_of(begin_ + from, begin_ + size_, [](unsigned char byte) { return byte == untouched; });
}

} // namespace quelta::test
