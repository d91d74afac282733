#include "support/recorded_calls.h"

#include <wincrypt.h>

#include <deque>
#include <regex>

namespace quelta::test {

namespace {

constexpr ULONG_PTR untouched = 0x5EED;
constexpr ULONG_PTR moreThanTheTokenCounts = 0x80000000;

std::string numberWords(char letter, DWORD number)
{
    static const std::map<char, const Names*> names = {
        {'s', &keySpecName},           {'e', &keySpecName},           {'a', &algorithmName},    {'b', &blobTypeName},
        {'v', &providerParameterName}, {'w', &settableParameterName}, {'y', &keyParameterName}, {'h', &hashParameterName}};
    const auto found = names.find(letter);
    if (found == names.end() || (letter == 'e' && number == 0)) return "";
    return (*found->second)(number);
}

std::string flagWords(char letter, DWORD flags)
{
    if (letter == 'q' && flags == CRYPT_FIRST) return ", CRYPT_FIRST";
    return letter == 'q' && flags == CRYPT_NEXT ? ", CRYPT_NEXT" : flagsText(flags);
}

} // namespace

std::string inputWords(const Input& input)
{
    if (!input) return "null";
    return input->empty() ? "empty" : valueWords(*input);
}

std::string words(const Place& place)
{
    if (place.shared) return "one variable of " + std::to_string(*place.buffer) + " bytes";
    if (!place.buffer && !place.stated) return "neither buffer nor length";
    const std::string room = "room " + std::to_string(place.stated.value_or(place.buffer.value_or(0)));
    if (!place.buffer) return *place.stated == 0 ? "no buffer" : "no buffer, " + room;
    return place.stated ? room : room + ", no length";
}

HandedBuffer::HandedBuffer(const Place& place, Length length)
    : room_(place.stated.value_or(place.buffer.value_or(0))), shared_(place.shared)
{
    const Bytes number = littleEndian({length == Length::room ? room_ : noResult});
    if (place.buffer) buffer_.emplace(*place.buffer);
    if (shared_) std::ranges::copy(number, buffer_->data());
    if (place.buffer) before_ = buffer_->bytes();
    if (place.stated && !shared_ && length != Length::none) length_.emplace(number);
}

HandedBuffer::HandedBuffer(const InPlace& given) : before_(given.data), room_(given.room)
{
    before_.resize(std::max<std::size_t>(given.room, given.data.size()), GuardedBuffer::untouched);
    buffer_.emplace(before_);
    length_.emplace(littleEndian({static_cast<DWORD>(given.data.size())}));
}

DWORD* HandedBuffer::length()
{
    if (shared_) return reinterpret_cast<DWORD*>(buffer_->data());
    return length_ ? reinterpret_cast<DWORD*>(length_->data()) : nullptr;
}

std::size_t HandedBuffer::reported() const
{
    return std::min<std::size_t>(length_ ? length_->asNumber() : before_.size(), before_.size());
}

Bytes HandedBuffer::written() const
{
    return buffer_ ? buffer_->first(reported()) : Bytes();
}

std::string HandedBuffer::outcome(const std::optional<std::string>& value) const
{
    if (shared_) return ", begins with " + toHex(buffer_->first(std::min<std::size_t>(buffer_->size(), 8)));
    std::string text;
    if (length_) text = length_->asNumber() == noResult ? ", no length" : ", length " + std::to_string(length_->asNumber());
    if (!buffer_ || before_.empty()) return text;
    const Bytes now = buffer_->bytes();
    if (now == before_) return text + ", buffer untouched";
    if (reported() > 0) text += ", " + value.value_or(valueWords(written()));
    const auto behind = ByteView(now).subspan(reported());
    return sameBytes(behind, ByteView(before_).subspan(reported())) ? text : text + ", and behind it " + words(behind);
}

ULONG_PTR addressOf(const void* object)
{
    return reinterpret_cast<ULONG_PTR>(object);
}

ULONG_PTR RecordedCalls::operator()(std::string_view name, const std::vector<Stated>& stated, std::optional<Change> change)
{
    const Function& function = *std::ranges::find(functions(), name, &Function::name);
    Function::Values values{};
    std::string texts, flags;
    std::deque<HandedInput> inputs;
    std::optional<HandedBuffer> buffer;
    Handle made = untouched, other = 0;
    auto next = stated.begin();
    const auto handBuffer = [&] {
        if (buffer || next == stated.end()) return std::string();
        const std::string& letters = function.arguments;
        const Stated& given = *next++;
        if (const auto* inPlace = std::get_if<InPlace>(&given)) {
            buffer.emplace(*inPlace);
            return inputWords(inPlace->data) + (letters.contains('R') ? ", room " + std::to_string(inPlace->room) : "");
        }
        using enum HandedBuffer::Length;
        const auto& place = std::get<Place>(given);
        buffer.emplace(place, !letters.contains('C') ? none : letters.find('R') < letters.find('C') ? unset : room);
        return words(place);
    };
    const auto handStated = [&](char letter, ULONG_PTR& value) -> std::string {
        if (next == stated.end()) return "";
        const Stated& given = *next++;
        if (const auto* input = std::get_if<Input>(&given)) {
            value = addressOf(inputs.emplace_back(*input).data());
            return inputText(function, *input);
        }
        if (const auto* text = std::get_if<Text>(&given)) {
            value = text->address;
            return text->words;
        }
        value = std::get<Number>(given).value;
        if (letter == 'K' || letter == 'k') return handle(value);
        if (letter == 'f' || letter == 'q') flags = flagWords(letter, static_cast<DWORD>(value));
        return numberWords(letter, static_cast<DWORD>(value));
    };
    for (std::size_t i = 0; i < function.arguments.size(); ++i) {
        const char letter = function.arguments[i];
        std::string text;
        switch (letter) {
        case 'P':
        case 'p': values[i] = opened_, text = handle(opened_); break;
        case 'L':
        case 'l': values[i] = inputs.empty() ? 0 : inputs.back().size(); break;
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
    LONG result = 0;
    recorder_.record(function.name, texts + (texts.empty() && flags.starts_with(", ") ? flags.substr(2) : flags), [&] {
        std::tie(result, lastAnswer_) = call(function, values);
        if (buffer) lastAnswer_ += buffer->outcome(valueText(function, values, buffer->written()));
        if (made == untouched) return lastAnswer_;
        if (made == 0) return lastAnswer_ + ", handle 0";
        recorder_.introduce(made_[made] = kindOf(function), made);
        return lastAnswer_ + ", " + handle(made);
    });
    static const std::regex freeing("CP(Destroy|Release).*|KSPFree(Key|Provider)");
    if (succeeded(result) && std::regex_match(function.name, freeing))
        made_.erase(values[function.arguments.find_last_of("PpKk")]);
    if (function.arguments.contains('H')) return made == untouched ? 0 : made;
    return static_cast<ULONG_PTR>(result);
}

void RecordedCalls::leaveOutEach(const Rows& rows)
{
    for (const auto& [name, stated] : rows) {
        const std::string& letters = std::ranges::find(functions(), name, &Function::name)->arguments;
        for (std::size_t i = 0; i < letters.size(); ++i) {
            if (std::string_view("PpKkTtDdLlBRCHAXx").contains(letters[i])) (*this)(name, stated, Change{i + 1, 0});
            if (letters[i] == 'L' || letters[i] == 'R') (*this)(name, stated, Change{i + 1, moreThanTheTokenCounts});
        }
    }
}

void RecordedCalls::callEach(const std::string& title, const char* argumentsLike, const Function::Values& values)
{
    for (const Function& function : functions()) {
        if (!std::regex_match(function.arguments, std::regex(argumentsLike))) continue;
        Function::Values handed = values;
        for (std::size_t i = 0; i < function.arguments.size(); ++i) {
            if (std::string_view("fqg").contains(function.arguments[i])) handed[i] = anyFlags;
            if (function.arguments[i] == 'x') handed[i] = unreadable;
        }
        recorder_.record(function.name, title, [&] { return call(function, handed).second; });
    }
}

void RecordedCalls::trySingleFlags(const Rows& rows)
{
    for (const auto& [name, stated] : rows) {
        const std::string& letters = std::ranges::find(functions(), name, &Function::name)->arguments;
        const std::size_t at = letters.find_last_of("fqg");
        if (at == std::string::npos) continue;
        std::map<std::string, std::vector<std::string>> flagsByAnswer;
        for (DWORD flag = 1; flag != 0; flag <<= 1) {
            const Recorder::Pause pause(recorder_);
            (*this)(name, stated, Change{at + 1, flag});
            flagsByAnswer[lastAnswer_].push_back(" " + std::to_string(flag));
        }
        for (const auto& [answer, flags] : flagsByAnswer) {
            std::string text;
            for (const auto& flag : flags) text += flag;
            text = flags.size() == 32 ? "any flag" : flags.size() > 16 ? "any other flag" : "flag" + text;
            recorder_.note(name + (", " + text) + ": " + answer);
        }
    }
}

} // namespace quelta::test
