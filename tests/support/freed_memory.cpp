#include "support/freed_memory.h"

#include <malloc.h>

#include <atomic>
#include <stdexcept>

// Where the address of the runtime's function stands, through which all code of this executable calls it.
extern "C" void (*__imp_free)(void*); // NOLINT(bugprone-reserved-identifier)

namespace quelta::test {

namespace {

// No thread_local: what keeps those is freed through here, too.
std::atomic<FreedMemory*> watch = nullptr;
std::atomic<void (*)(void*)> realFree = nullptr;

void lookAndFree(void* block)
{
    if (auto* const watching = block ? watch.load() : nullptr)
        watching->look({static_cast<const unsigned char*>(block), _msize(block)});
    realFree.load()(block);
}

} // namespace

FreedMemory::FreedMemory(ByteView secret) : secret_(secret)
{
    watch = this;
    if (realFree) return;
    DWORD old = 0;
    if (!VirtualProtect(&__imp_free, sizeof __imp_free, PAGE_READWRITE, &old))
        throw std::runtime_error("The import of free() can't be changed");
    realFree = __imp_free;
    __imp_free = lookAndFree;
}

FreedMemory::~FreedMemory()
{
    watch = nullptr;
}

void FreedMemory::look(ByteView block)
{
    if (GetCurrentThreadId() != thread_) return;
    ++blocks;
    const auto found = std::ranges::search(block, secret_);
    if (!found.empty()) ++withSecret;
    if (!found.empty() && found.begin() - block.begin() <= 1) ++withSecretFirst;
    const ByteView mark = deviceBufferMark;
    if (block.size() >= mark.size() && sameBytes(block.last(mark.size()), mark)) ++deviceBuffers;
}

} // namespace quelta::test
