// A thread that calls, and judges each answer at once.
#pragma once

#include "base/bytes.h"
#include "soak/board.h"

#include <concepts>
#include <optional>
#include <random>

namespace quelta::soak {

std::string nameOfCode(Code code);

class Thread {
public:
    Thread(Board& onBoard, ThreadBoard& ownRow, std::uint32_t seed) : board(onBoard), own(ownRow), random_(seed)
    {
        own.thread = GetCurrentThreadId();
        own.working = true;
    }
    ~Thread()
    {
        own.working = false;
        own.thread = 0;
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Whether it was done. `work` answers with a status, or with a Boolean and a last error.
    template <class Work>
    bool ask(CallName call, Work work)
    {
        own.call = call.row;
        own.weather = board.weatherNumber.load();
        SetLastError(noCode);
        return judge(call, codeOf(work()));
    }
    // For what may never be done: it is to be refused with this code.
    template <class Work>
    void askInVain(CallName call, Code refusal, Work work)
    {
        ask(call, [&] {
            const Code code = codeOf(work());
            return code == 0 ? accepted : code == refusal ? Code{0} : code;
        });
    }
    // `work` gets room and the address of its size, for which it is asked first, as applications do, unless there is a room.
    template <class Work>
    std::optional<Bytes> fetch(CallName call, Work work, DWORD room = 0)
    {
        Bytes bytes;
        DWORD size = room;
        const bool done = ask(call, [&] {
            if (room == 0)
                if (const Code refused = codeOf(work(nullptr, &size))) return refused;
            bytes.resize(size);
            return codeOf(work(bytes.data(), &size));
        });
        if (!done) return std::nullopt;
        require(size <= bytes.size(), call, "it tells more bytes than there was room for");
        bytes.resize(std::min<std::size_t>(size, bytes.size()));
        return bytes;
    }
    // What was done must be right, too.
    void require(bool right, CallName call, const char* otherwise);
    void find(const std::string& what);

    std::size_t below(std::size_t limit) { return random_() % limit; }
    bool oneIn(std::size_t chances) { return below(chances) == 0; }
    Bytes bytes(std::size_t count);

    Board& board;
    ThreadBoard& own;

private:
    static constexpr Code accepted = 0x20000002;
    template <class Answer>
    static Code codeOf(Answer answer)
    {
        if constexpr (std::same_as<Answer, Code>) return answer;
        return answer ? 0 : GetLastError() == 0 ? noCode : static_cast<Code>(GetLastError());
    }
    bool judge(CallName call, Code code);

    std::mt19937 random_;
};

// A PIN that is wrong on purpose, while it is entered. False if this is not the time for it.
class WrongPin {
public:
    explicit WrongPin(Board& board);
    ~WrongPin() { ++board_.wrongDone; }
    WrongPin(const WrongPin&) = delete;
    WrongPin& operator=(const WrongPin&) = delete;
    explicit operator bool() const { return allowed_; }

private:
    Board& board_;
    bool allowed_;
};

} // namespace quelta::soak
