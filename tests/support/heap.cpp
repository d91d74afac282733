#include "support/heap.h"

#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

// The import table's addresses of the runtime's functions. All code of this executable calls through them.
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

// This is not thread_local, since the runtime allocates thread-local storage through these functions.
std::atomic<DWORD> countedThread = 0;
Heap ofTest;

template <class Make>
auto counted(Make make) -> decltype(make())
{
    if (GetCurrentThreadId() != countedThread) return make();
    const bool refuse = ofTest.left == 0;
    if (ofTest.left != Heap::all) --ofTest.left;
    if (refuse) ofTest.refused = true;
    if (refuse) return nullptr;
    auto* const made = make();
    if (made) ++ofTest.live;
    return made;
}

void* countedMalloc(std::size_t size)
{
    return counted([=] {
        void* const made = realMalloc(size);
        // The block may hold what another thread or the fake library freed. Otherwise the search would take that for a secret of
        // the module's.
        if (made) std::memset(made, 0xDD, _msize(made));
        return made;
    });
}
void* countedCalloc(std::size_t count, std::size_t size)
{
    return counted([=] { return realCalloc(count, size); });
}
wchar_t* countedCopy(const wchar_t* text)
{
    return counted([=] { return realCopy(text); });
}

void countedFree(void* block)
{
    if (block && GetCurrentThreadId() == countedThread) {
        --ofTest.live;
        if (auto* const watch = ofTest.watch.load()) watch->look({static_cast<const unsigned char*>(block), _msize(block)});
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
        // At a thread's first exception the runtime allocates a record of the thread, and ends the process if it can't.
        try {
            throw 5;
        } catch (int) {
        }
        replace(__imp_malloc, countedMalloc);
        replace(__imp_calloc, countedCalloc);
        replace(__imp__wcsdup, countedCopy);
        replace(__imp_free, countedFree);
        countedThread = GetCurrentThreadId();
    }
    return ofTest;
}

FreedMemory::FreedMemory(ByteView secret) : secret_(secret)
{
    heap_.watch = this;
}

void FreedMemory::look(ByteView block)
{
    const auto found = std::ranges::search(block, secret_);
    if (found.empty()) return;
    ++withSecret;
    if (found.begin() - block.begin() <= 1) ++withSecretFirst;
}

} // namespace quelta::test
