#include "support/heap.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

// Where the addresses of the runtime's functions stand, through which all code of this executable calls them.
extern "C" {
extern void* (*__imp_malloc)(std::size_t);              // NOLINT(bugprone-reserved-identifier)
extern void* (*__imp_calloc)(std::size_t, std::size_t); // NOLINT(bugprone-reserved-identifier)
extern wchar_t* (*__imp__wcsdup)(const wchar_t*);       // NOLINT(bugprone-reserved-identifier)
extern void (*__imp_free)(void*);                       // NOLINT(bugprone-reserved-identifier)
}

namespace quelta::test {

namespace {

const auto realMalloc = __imp_malloc;
const auto realCalloc = __imp_calloc;
const auto realCopy = __imp__wcsdup;
const auto realFree = __imp_free;

// No thread_local: what keeps those comes from here, too.
std::atomic<DWORD> countedThread = 0;
Heap ofTest;

template <class Make>
auto counted(std::size_t size, Make make) -> decltype(make())
{
    if (GetCurrentThreadId() != countedThread) return make();
    ofTest.largest = std::max(ofTest.largest, size);
    const bool refuse = ofTest.left == 0;
    if (ofTest.left != Heap::all) --ofTest.left;
    if (refuse) ofTest.refused = true;
    if (refuse) return nullptr;
    auto* const made = make();
    if (made) ++ofTest.live;
    // What the watch makes itself is not watched.
    if (auto* const watch = made ? std::exchange(ofTest.watch, nullptr) : nullptr) {
        watch->made(made);
        ofTest.watch = watch;
    }
    return made;
}

void* countedMalloc(std::size_t size)
{
    return counted(size, [=] { return realMalloc(size); });
}
void* countedCalloc(std::size_t count, std::size_t size)
{
    return counted(count * size, [=] { return realCalloc(count, size); });
}
wchar_t* countedCopy(const wchar_t* text)
{
    return counted(0, [=] { return realCopy(text); });
}

void countedFree(void* block)
{
    if (block && GetCurrentThreadId() == countedThread) {
        --ofTest.live;
        if (ofTest.watch) ofTest.watch->look({static_cast<const unsigned char*>(block), _msize(block)});
    }
    realFree(block);
}

template <class Function>
void replace(Function& import, Function other)
{
    DWORD old = 0;
    if (!VirtualProtect(&import, sizeof import, PAGE_READWRITE, &old))
        throw std::runtime_error("An import of the heap's can't be changed");
    import = other;
}

} // namespace

Heap& heap()
{
    if (countedThread == 0) {
        replace(__imp_malloc, countedMalloc);
        replace(__imp_calloc, countedCalloc);
        replace(__imp__wcsdup, countedCopy);
        replace(__imp_free, countedFree);
        countedThread = GetCurrentThreadId();
    }
    return ofTest;
}

bool FreedMemory::beginsWithSecret(ByteView block) const
{
    const auto found = std::ranges::search(block, secret_);
    return !found.empty() && found.begin() - block.begin() <= 1;
}

std::ptrdiff_t FreedMemory::heldFirst() const
{
    return std::ranges::count_if(live_, [this](ByteView block) { return beginsWithSecret(block); });
}

void FreedMemory::made(const void* block)
{
    live_.emplace_back(static_cast<const unsigned char*>(block), _msize(const_cast<void*>(block)));
}

void FreedMemory::look(ByteView block)
{
    ++blocks;
    if (!std::ranges::search(block, secret_).empty()) ++withSecret;
    if (beginsWithSecret(block)) ++withSecretFirst;
    std::erase_if(live_, [&](ByteView known) { return known.data() == block.data(); });
}

} // namespace quelta::test
