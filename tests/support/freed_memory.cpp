#include "support/freed_memory.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <stdexcept>

namespace quelta::test {

namespace {

// No thread_local: what keeps those is freed through here, too.
std::atomic<FreedMemory*> watch = nullptr;

template <class Type>
const Type* at(ULONG_PTR offset)
{
    return reinterpret_cast<const Type*>(reinterpret_cast<const char*>(GetModuleHandleA(nullptr)) + offset);
}

// Where the address of the runtime's function stands, through which all code of this executable calls it.
void** importOfFree()
{
    const auto* headers = at<IMAGE_NT_HEADERS>(static_cast<ULONG_PTR>(at<IMAGE_DOS_HEADER>(0)->e_lfanew));
    const DWORD directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (const auto* library = at<IMAGE_IMPORT_DESCRIPTOR>(directory); library->Name; ++library) {
        const auto* names = at<IMAGE_THUNK_DATA>(library->OriginalFirstThunk);
        for (std::size_t i = 0; names[i].u1.AddressOfData; ++i) {
            const auto name = names[i].u1.AddressOfData;
            if (IMAGE_SNAP_BY_ORDINAL(name) || std::strcmp(at<IMAGE_IMPORT_BY_NAME>(name)->Name, "free") != 0) continue;
            return const_cast<void**>(at<void*>(library->FirstThunk + i * sizeof(void*)));
        }
    }
    throw std::runtime_error("This executable does not import free()");
}

using Free = void (*)(void*);
std::atomic<Free> realFree = nullptr;

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
    void** const import = importOfFree();
    realFree = reinterpret_cast<Free>(*import);
    DWORD old = 0;
    if (!VirtualProtect(import, sizeof *import, PAGE_READWRITE, &old)) throw std::runtime_error("The import can't be changed");
    *import = reinterpret_cast<void*>(&lookAndFree);
}

FreedMemory::~FreedMemory()
{
    watch = nullptr;
}

void FreedMemory::look(ByteView block)
{
    if (GetCurrentThreadId() != thread_) return;
    ++blocks_;
    const auto found = std::ranges::search(block, secret_);
    if (!found.empty()) ++withSecret_;
    if (!found.empty() && found.begin() == block.begin()) ++withSecretFirst_;
    const ByteView mark = deviceBufferMark;
    if (block.size() >= mark.size() && std::ranges::equal(block.last(mark.size()), mark)) ++deviceBuffers_;
}

} // namespace quelta::test
