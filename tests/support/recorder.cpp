#include "support/recorder.h"

#include "log/log_writer.h"

namespace quelta::test {

namespace {

std::string levelOf(const LogLine& line)
{
    if (line.tag == debug("").tag) return "D ";
    if (line.tag == error("").tag) return "E ";
    return line.tag;
}

std::string addressText(ULONG_PTR address)
{
    return "0x" + toHex(reversed(littleEndian({static_cast<std::uint32_t>(address), static_cast<std::uint32_t>(address >> 32)})));
}

void replaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

} // namespace

Recorder::Recorder(FakeDeviceLibrary& token, LogFolder& log, DialogUser& user) : token_(token), log_(log), user_(user)
{
    token_.onCall = [this](const std::string& call, const std::string& answer) { writeDown("token " + call + " = " + answer); };
    // Runs on the user's thread, while the recorded thread waits in the window.
    user_.onWindow([this](const std::string& window) { writeDown(window); });
}

Recorder::~Recorder()
{
    token_.onCall = nullptr;
    user_.onWindow(nullptr);
}

void Recorder::record(const std::string& name, const std::string& arguments, const std::function<std::string()>& call)
{
    if (pauses_ == 0 && getLogLevel() >= logLevelDebug) unnamed_ = name;
    recordInner(name, arguments, call);
}

void Recorder::recordInner(const std::string& name, const std::string& arguments, const std::function<std::string()>& call)
{
    if (pauses_ > 0) return static_cast<void>(call());
    log_.forget();
    lines_.push_back(inWords(name + "(" + arguments + ")"));
    const std::size_t count = lines_.size();
    const std::string answer = "= " + inWords(call());
    takeLog();
    if (lines_.size() > count) return lines_.push_back("  " + answer);
    lines_.back() += " " + answer;
}

void Recorder::note(const std::string& text)
{
    lines_.push_back("(" + inWords(text) + ")");
}

void Recorder::introduce(const std::string& kind, ULONG_PTR handle)
{
    handles_[handle] = kind + std::to_string(++counts_[kind]);
}

std::string Recorder::handle(ULONG_PTR handle) const
{
    if (handle == 0) return "none";
    const auto found = handles_.find(handle);
    return found == handles_.end() ? "unknown" : found->second;
}

// Longer texts come first, since they may contain others.
void Recorder::call(ByteView bytes, const std::string& word)
{
    const std::string text = toHex(bytes);
    const auto shorter = std::ranges::find_if(words_, [&](const auto& known) { return known.first.size() < text.size(); });
    words_.emplace(shorter, text, word);
}

void Recorder::writeDown(std::string line)
{
    const std::lock_guard lock(mutex_);
    if (pauses_ > 0) return;
    takeLog();
    lines_.push_back("  " + inWords(std::move(line)));
}

void Recorder::takeLog()
{
    const std::lock_guard lock(mutex_);
    auto found = log_.takeLines();
    const auto name = std::exchange(unnamed_, std::nullopt);
    const bool hasNamedItself = name && !found.empty() && found.front() == debug(*name);
    if (hasNamedItself) found.erase(found.begin());
    if (name && !hasNamedItself) lines_.push_back("  (has not named itself)");
    for (const LogLine& line : found) writeLogLine(line);
}

// Debug lines are many. So as many as fit share a line.
void Recorder::writeLogLine(const LogLine& line)
{
    constexpr std::size_t width = 150;
    const std::string text = inWords(line.text);
    std::string& last = lines_.back();
    const bool joins = line.tag == debug("").tag && last.starts_with("  D ") && last.size() + text.size() < width;
    if (!joins) return lines_.push_back("  " + levelOf(line) + text);
    last += " | " + text;
}

std::string Recorder::inWords(std::string text) const
{
    for (const auto& [address, word] : handles_) replaceAll(text, addressText(address), word);
    for (const auto& [hex, word] : words_) replaceAll(text, hex, word);
    return withShortHex(text);
}

} // namespace quelta::test
