#include "store/token_store.h"

#include "base/token_error.h"
#include "common/text.h"
#include "store/files.h"

#include <mutex>

namespace quelta::softtoken {

namespace {

constexpr const wchar_t* folderVariable = L"QUELTA_TOKEN_DIR";
constexpr const wchar_t* stateName = L"token.json";
constexpr const wchar_t* lockName = L"token.lock";

std::wstring environment(const wchar_t* name)
{
    std::wstring value(256, L'\0');
    for (;;) {
        const DWORD size = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        const bool fits = size < value.size();
        value.resize(size);
        if (fits) return value;
    }
}

struct FreeHeap {
    void operator()(wchar_t* text) const { HeapFree(GetProcessHeap(), 0, text); }
};

using ConvertUnixPath = wchar_t*(CDECL*)(const char*);

ConvertUnixPath findUnixPathConversion()
{
    const FARPROC found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_dos_file_name");
    return reinterpret_cast<ConvertUnixPath>(reinterpret_cast<void*>(found));
}

// The function's address is looked up once, when the library is loaded. Every poll resolves the folder, and a poll must not need
// the loader: whoever unloads the library holds the loader lock while it waits for the last poll.
const ConvertUnixPath convertUnixPath = findUnixPathConversion();

// Windows would resolve a path like /tmp/token on the current drive. That is drive C: if the program runs inside the prefix.
std::filesystem::path resolved(const std::wstring& text)
{
    if (convertUnixPath == nullptr || !text.starts_with(L'/') || text.starts_with(L"//")) return text;
    const std::unique_ptr<wchar_t, FreeHeap> path(convertUnixPath(toUtf8(text).c_str()));
    return path ? std::filesystem::path(path.get()) : std::filesystem::path(text);
}

// Caches the token of one folder that this process parsed last. A process seldom uses two. A damaged token is cached as well, so
// that polling it throws nothing: a thread's first exception costs the process two handles for good.
struct Cache {
    std::mutex mutex;
    std::filesystem::path folder;
    FileStamp stamp{};
    Reading reading;
};

Cache cache;

std::optional<Reading> cached(const std::filesystem::path& folder, const FileStamp& stamp)
{
    const std::lock_guard guard(cache.mutex);
    if (cache.folder != folder || cache.stamp != stamp) return std::nullopt;
    return cache.reading;
}

void remember(const std::filesystem::path& folder, const FileStamp& stamp, const Reading& reading)
{
    const std::lock_guard guard(cache.mutex);
    cache.folder = folder;
    cache.stamp = stamp;
    cache.reading = reading;
}

Reading parsed(const std::filesystem::path& folder, ByteView content)
{
    auto state = fromJson(toText(content));
    if (state) return std::make_shared<const StoredToken>(*std::move(state));
    return std::unexpected(
        TokenError("the token in " + textOf(folder) + " can't be read (" + state.error().what() +
                   "): restore its token.json, or make a new token with: quelta-token init --force --pin PIN"));
}

// The caller holds the lock.
Reading load(const std::filesystem::path& folder)
{
    const std::optional<FileStamp> stamp = stampOf(folder / stateName);
    if (!stamp) return nullptr;
    if (auto known = cached(folder, *stamp)) return *known;
    const Reading reading = parsed(folder, readFile(folder / stateName));
    remember(folder, *stamp, reading);
    return reading;
}

// The caller holds the exclusive lock.
void save(const std::filesystem::path& folder, StoredToken state)
{
    writeAtomically(folder / stateName, toBytes(toJson(state)));
    if (const auto stamp = stampOf(folder / stateName))
        remember(folder, *stamp, std::make_shared<const StoredToken>(std::move(state)));
}

} // namespace

std::filesystem::path pathFrom(const std::string& text)
{
    return resolved(toWide(text));
}

std::string textOf(const std::filesystem::path& path)
{
    return toUtf8(path.wstring());
}

std::filesystem::path tokenFolder()
{
    const std::wstring chosen = environment(folderVariable);
    if (!chosen.empty()) return resolved(chosen);
    const std::wstring local = environment(L"LOCALAPPDATA");
    if (local.empty()) throw TokenError(Result::noToken, "no folder for the token: set QUELTA_TOKEN_DIR");
    return std::filesystem::path(local) / L"Oskvar" / L"Quelta" / L"SoftwareTokenProtectsNothing";
}

Reading readToken(const std::filesystem::path& folder)
{
    try {
        const std::optional<FileStamp> stamp = stampOf(folder / stateName);
        if (!stamp) return nullptr;
        if (auto known = cached(folder, *stamp)) return *known;
        const File lock = lockFile(folder / lockName, LockKind::shared);
        return load(folder);
    } catch (const TokenError& error) {
        return std::unexpected(error);
    }
}

TokenError noTokenIn(const std::filesystem::path& folder)
{
    return {Result::noToken, "no token in " + textOf(folder) + ": make one with: quelta-token init --pin PIN"};
}

void changeToken(const std::filesystem::path& folder, const std::function<bool(StoredToken&)>& change)
{
    if (!stampOf(folder / stateName)) throw noTokenIn(folder);
    const File lock = lockFile(folder / lockName, LockKind::exclusive);
    const Reading before = load(folder);
    if (!before) throw before.error();
    if (!*before) throw noTokenIn(folder);
    StoredToken state = **before;
    if (change(state)) save(folder, std::move(state));
}

void createToken(const std::filesystem::path& folder, const StoredToken& state, bool overwrite)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) throw TokenError("can't make the folder " + textOf(folder) + ": " + error.message());
    const File lock = lockFile(folder / lockName, LockKind::exclusive);
    if (stampOf(folder / stateName) && !overwrite)
        throw TokenError("there is a token in " + textOf(folder) +
                         " already: use --force to throw it away, or another folder with --dir");
    save(folder, state);
}

} // namespace quelta::softtoken
