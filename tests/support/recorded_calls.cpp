#include "support/recorded_calls.h"

#include <wincrypt.h>

#include <algorithm>
#include <deque>
#include <regex>

namespace quelta::test {

namespace {

constexpr ULONG_PTR untouched = 0x5EED;
constexpr ULONG_PTR moreThanTheTokenCounts = 0x80000000;

// Returns, for example, "type 1 algorithm 26625 128 bytes of 00" for a blob of CryptoAPI.
std::string inputText(const std::string& function, const Input& input)
{
    if (!input || input->empty()) return input ? "empty" : "null";
    if (function != "CPImportKey" || input->size() < sizeof(BLOBHEADER)) return valueWords(*input);
    const auto& header = *reinterpret_cast<const BLOBHEADER*>(input->data());
    return "type " + std::to_string(header.bType) + " algorithm " + std::to_string(header.aiKeyAlg) + " " +
           words(ByteView(*input).subspan(sizeof header));
}

// Writes the records of two enumerations field by field.
std::string outputText(const std::string& function, const Function::Values& values, ByteView value)
{
    const auto named = [](const char* name, DWORD length) { return ", \"" + std::string(name) + "\" " + std::to_string(length); };
    const bool ofProvider = function == "CPGetProvParam";
    if (ofProvider && values[1] == PP_ENUMALGS && value.size() == sizeof(PROV_ENUMALGS)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS*>(value.data());
        return std::to_string(record.aiAlgid) + " " + std::to_string(record.dwBitLen) + named(record.szName, record.dwNameLen);
    }
    if (ofProvider && values[1] == PP_ENUMALGS_EX && value.size() == sizeof(PROV_ENUMALGS_EX)) {
        const auto& record = *reinterpret_cast<const PROV_ENUMALGS_EX*>(value.data());
        std::string text = std::to_string(record.aiAlgid);
        for (const DWORD number : {record.dwDefaultLen, record.dwMinLen, record.dwMaxLen, record.dwProtocols})
            text += " " + std::to_string(number);
        return text + named(record.szName, record.dwNameLen) + named(record.szLongName, record.dwLongNameLen);
    }
    return valueWords(value);
}

// Returns one of "room 256", "no buffer", "no buffer, room 7", "room 256, no length", "neither buffer nor length", "one variable
// of 4 bytes".
std::string placeText(const Place& place)
{
    if (place.shared) return "one variable of " + std::to_string(*place.buffer) + " bytes";
    if (!place.buffer && !place.stated) return "neither buffer nor length";
    const std::string room = "room " + std::to_string(place.stated.value_or(place.buffer.value_or(0)));
    if (!place.buffer) return *place.stated == 0 ? "no buffer" : "no buffer, " + room;
    return place.stated ? room : room + ", no length";
}

// The buffer and the length of one call, each at the edge of an inaccessible page.
class HandedBuffer {
public:
    // The content of the length before the call: the room, or a value that no call writes.
    enum class Length { room, unset, none };

    HandedBuffer(const Place& place, Length length)
        : room_(place.stated.value_or(place.buffer.value_or(0))), shared_(place.shared)
    {
        const Bytes number = littleEndian({length == Length::room ? room_ : noResult});
        if (place.buffer) buffer_.emplace(*place.buffer);
        if (shared_) std::ranges::copy(number, buffer_->data());
        if (place.buffer) before_ = buffer_->bytes();
        if (place.stated && !shared_ && length != Length::none) length_.emplace(number);
    }
    explicit HandedBuffer(const InPlace& given) : before_(given.data), room_(given.room)
    {
        before_.resize(std::max<std::size_t>(given.room, given.data.size()), GuardedBuffer::untouched);
        buffer_.emplace(before_);
        length_.emplace(littleEndian({static_cast<DWORD>(given.data.size())}));
    }

    const void* data() const { return buffer_ ? buffer_->data() : nullptr; }
    const void* length() const { return shared_ ? buffer_->data() : length_ ? length_->data() : nullptr; }
    DWORD room() const { return room_; }

    // Returns, for example, ", length 256, 256 bytes rising from 01", and tells whatever else was changed. `valueText` words the
    // bytes.
    template <class ValueText>
    std::string outcome(ValueText valueText) const
    {
        if (shared_) return ", begins with " + toHex(buffer_->first(std::min<std::size_t>(buffer_->size(), 8)));
        std::string text;
        if (length_) text = length_->asNumber() == noResult ? ", no length" : ", length " + std::to_string(length_->asNumber());
        if (!buffer_ || before_.empty()) return text;
        const Bytes now = buffer_->bytes();
        if (now == before_) return text + ", buffer untouched";
        const std::size_t reported = std::min<std::size_t>(length_ ? length_->asNumber() : now.size(), now.size());
        if (reported > 0) text += ", " + valueText(ByteView(now).first(reported));
        const auto behind = ByteView(now).subspan(reported);
        return sameBytes(behind, ByteView(before_).subspan(reported)) ? text : text + ", and behind it " + words(behind);
    }

private:
    static constexpr DWORD noResult = 0x5EED5EED;

    std::optional<GuardedBuffer> buffer_;
    std::optional<GuardedBuffer> length_;
    Bytes before_;
    DWORD room_ = 0;
    bool shared_ = false;
};

std::pair<bool, std::string> answerOf(const Function& function, const Function::Values& values)
{
    const auto called = callWithLastError([&] { return function(values); });
    if (function.name.starts_with("KSP")) return {called.result == 0, statusText(called.result)};
    return {called.result != FALSE, answerText({called.result, called.lastError})};
}

} // namespace

std::string answerText(const Called<BOOL>& called)
{
    const std::string value = called.result ? "TRUE" : "FALSE";
    if (!called.lastErrorKept()) return value + ", " + errorName(called.lastError);
    return called.result ? value : value + ", last error kept";
}

std::string statusText(LONG status)
{
    return status == 0 ? "0" : errorName(static_cast<DWORD>(status));
}

ULONG_PTR addressOf(const void* object)
{
    return reinterpret_cast<ULONG_PTR>(object);
}

MadeHandle handleMadeBy(const std::string& function)
{
    if (function == "CPAcquireContext") return {"context", "CPReleaseContext"};
    if (function == "KSPOpenProvider") return {"provider", "KSPFreeProvider"};
    if (function.starts_with("KSP")) return {"key", "KSPFreeKey"};
    return function.ends_with("Hash") ? MadeHandle{"hash", "CPDestroyHash"} : MadeHandle{"key", "CPDestroyKey"};
}

void freeMade(const Function& freeing, ULONG_PTR owner, ULONG_PTR made)
{
    const bool closes = freeing.arguments.find_first_of("Kk") == std::string::npos;
    freeing(closes ? Function::Values{made} : Function::Values{owner, made});
}

ULONG_PTR RecordedCalls::operator()(std::string_view name, const std::vector<Stated>& stated, std::optional<Change> change)
{
    const Function& function = named(name);
    Function::Values values{};
    std::string texts, flags;
    std::deque<std::optional<GuardedBuffer>> inputs;
    std::optional<HandedBuffer> buffer;
    Handle made = untouched, other = 0;
    auto next = stated.begin();
    const auto handBuffer = [&] {
        if (buffer || next == stated.end()) return std::string();
        const std::string& letters = function.arguments;
        const Stated& given = *next++;
        if (const auto* inPlace = std::get_if<InPlace>(&given)) {
            buffer.emplace(*inPlace);
            return inputText("", inPlace->data) + (letters.contains('R') ? ", room " + std::to_string(inPlace->room) : "");
        }
        using enum HandedBuffer::Length;
        const auto& place = std::get<Place>(given);
        buffer.emplace(place, !letters.contains('C') ? none : letters.find('R') < letters.find('C') ? unset : room);
        return placeText(place);
    };
    const auto handStated = [&](char letter, ULONG_PTR& value) -> std::string {
        if (next == stated.end()) return "";
        const Stated& given = *next++;
        if (const auto* input = std::get_if<Input>(&given)) {
            if (auto& bytes = inputs.emplace_back(); *input) value = addressOf(bytes.emplace(**input).data());
            return inputText(function.name, *input);
        }
        if (const auto* text = std::get_if<Text>(&given)) {
            value = text->address;
            return text->words;
        }
        value = std::get<Number>(given).value;
        if (letter == 'K' || letter == 'k') return handle(value);
        if (letter == 'f') flags = flagsText(static_cast<DWORD>(value));
        return letter == 'n' ? std::to_string(value) : "";
    };
    for (std::size_t i = 0; i < function.arguments.size(); ++i) {
        const char letter = function.arguments[i];
        std::string text;
        switch (letter) {
        case 'P':
        case 'p': values[i] = opened_, text = handle(opened_); break;
        case 'L':
        case 'l': values[i] = !inputs.empty() && inputs.back() ? inputs.back()->size() : 0; break;
        case 'B':
        case 'R':
            text = handBuffer();
            if (buffer) values[i] = letter == 'R' ? buffer->room() : addressOf(buffer->data());
            break;
        case 'C': values[i] = buffer ? addressOf(buffer->length()) : 0; break;
        case 'H': values[i] = addressOf(&made); break;
        case 'A': values[i] = addressOf(&other); break;
        case 'X':
        case 'x': values[i] = unreadable; break;
        case 'g': values[i] = anyFlags; break;
        default: text = handStated(letter, values[i]);
        }
        texts += (texts.empty() || text.empty() ? "" : ", ") + text;
    }
    if (change) {
        values.at(change->argument - 1) = change->value;
        flags += "; argument " + std::to_string(change->argument) + " is " + std::to_string(change->value);
    }
    bool succeeded = false;
    recorder_.record(function.name, texts + (texts.empty() && flags.starts_with(", ") ? flags.substr(2) : flags), [&] {
        std::string answer;
        std::tie(succeeded, answer) = answerOf(function, values);
        if (buffer) answer += buffer->outcome([&](ByteView value) { return outputText(function.name, values, value); });
        if (made == untouched) return answer;
        if (made == 0) return answer + ", handle 0";
        recorder_.introduce(handleMadeBy(function.name).kind, made);
        return answer + ", " + handle(made);
    });
    if (function.arguments.contains('H')) return made == untouched ? 0 : made;
    return static_cast<ULONG_PTR>(succeeded);
}

void RecordedCalls::leaveOutEach(const Rows& rows)
{
    for (const auto& [name, stated] : rows) {
        const std::string& letters = named(name).arguments;
        for (std::size_t i = 0; i < letters.size(); ++i) {
            if (std::string_view("PpKkTtDdLlBRCHAXx").contains(letters[i])) (*this)(name, stated, Change{i + 1, 0});
            if (letters[i] == 'L' || letters[i] == 'R') (*this)(name, stated, Change{i + 1, moreThanTheTokenCounts});
        }
    }
}

void RecordedCalls::callEach(const std::string& title, const char* argumentsLike, const Function::Values& values)
{
    for (const Function& function : functions_) {
        if (!std::regex_match(function.arguments, std::regex(argumentsLike))) continue;
        Function::Values handed = values;
        for (std::size_t i = 0; i < function.arguments.size(); ++i) {
            if (std::string_view("fg").contains(function.arguments[i])) handed[i] = anyFlags;
            if (function.arguments[i] == 'x') handed[i] = unreadable;
        }
        recorder_.record(function.name, title, [&] { return answerOf(function, handed).second; });
    }
}

} // namespace quelta::test
