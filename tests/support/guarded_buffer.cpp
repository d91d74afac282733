#include "support/guarded_buffer.h"

#include <new>

namespace quelta::test {

namespace {

constexpr std::size_t pageSize = 4096;

std::size_t pagesFor(std::size_t size)
{
    return (size + pageSize - 1) / pageSize * pageSize;
}

} // namespace

// Reserves the needed pages and an inaccessible one behind them.
GuardedBuffer::GuardedBuffer(std::size_t size, unsigned char fill)
    : pages_(VirtualAlloc(nullptr, pagesFor(size) + pageSize, MEM_RESERVE, PAGE_NOACCESS)),
      begin_(static_cast<unsigned char*>(pages_) + pagesFor(size) - size),
      size_(size)
{
    if (!pages_ || (size > 0 && !VirtualAlloc(pages_, pagesFor(size), MEM_COMMIT, PAGE_READWRITE))) throw std::bad_alloc();
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

} // namespace quelta::test
