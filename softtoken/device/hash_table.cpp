#include "device/hash_table.h"

namespace quelta::softtoken {

namespace {

constexpr std::size_t mostEntries = 4096;

HashTable::Handle handleOf(std::uintptr_t number)
{
    return reinterpret_cast<HashTable::Handle>(number);
}
std::uintptr_t numberOf(HashTable::Handle handle)
{
    return reinterpret_cast<std::uintptr_t>(handle);
}

[[noreturn]] void notFound()
{
    throw TokenError(Result::badArgument, "no digest with this handle");
}

} // namespace

HashTable hashTable;

HashTable::Handle HashTable::start(const KnownDigest& algorithm)
{
    auto entry = std::make_shared<Entry>();
    entry->algorithm = &algorithm;
    entry->hash = startDigest(algorithm);
    const std::lock_guard guard(mutex_);
    if (entries_.size() >= mostEntries) entries_.erase(entries_.begin());
    entries_.emplace(++lastNumber_, std::move(entry));
    return handleOf(lastNumber_);
}

std::shared_ptr<HashTable::Entry> HashTable::find(Handle handle)
{
    const std::lock_guard guard(mutex_);
    const auto found = entries_.find(numberOf(handle));
    if (found == entries_.end()) notFound();
    return found->second;
}

void HashTable::update(Handle handle, ByteView data)
{
    const auto entry = find(handle);
    const std::lock_guard guard(entry->mutex);
    updateDigest(entry->hash, data);
}

std::optional<Bytes> HashTable::finish(Handle handle, std::size_t room, std::size_t& needed)
{
    const auto entry = find(handle);
    needed = entry->algorithm->size;
    if (needed > room) return std::nullopt;
    {
        // Whoever takes the entry out of the table finishes it.
        const std::lock_guard guard(mutex_);
        if (entries_.erase(numberOf(handle)) == 0) notFound();
    }
    const std::lock_guard guard(entry->mutex);
    return finishDigest(entry->hash, *entry->algorithm);
}

} // namespace quelta::softtoken
