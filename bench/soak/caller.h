// A thread of a worker that calls the module, and judges each answer at once.
#pragma once

#include "end_to_end/interfaces.h"
#include "soak/board.h"

#include <concepts>
#include <random>

namespace quelta::soak {

// Adds a line to the report.
void find(const std::string& what);

class Caller {
public:
    Caller(Board& onBoard, ThreadLine& line, std::uint32_t seed) : board(onBoard), line_(line), random_(seed) {}
    ~Caller() { line_.since = 0; }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    // `work` makes the call, and returns a code or a value. An empty value means a refusal. Its code is the last error.
    template <class Work>
    auto ask(CallName call, Work work)
    {
        line_.call = call.row;
        line_.since = GetTickCount64();
        const std::uint32_t moment = board.moment;
        SetLastError(noCode);
        auto answer = work();
        judge(call.row, moment, codeOf(answer));
        return answer;
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }
    bool oneIn(std::size_t chances) { return below(chances) == 0; }
    Bytes bytes(std::size_t count)
    {
        Bytes made(count);
        for (auto& byte : made) byte = static_cast<unsigned char>(below(256));
        return made;
    }

    Board& board;

private:
    template <class Answer>
    static Code codeOf(const Answer& answer)
    {
        if constexpr (std::same_as<Answer, Code>)
            return answer;
        else if constexpr (requires { answer.status(); })
            return answer.status();
        else
            return isGiven(answer) ? 0 : GetLastError() == 0 ? noCode : static_cast<Code>(GetLastError());
    }
    static bool isGiven(const Bytes& bytes) { return !bytes.empty(); }
    static bool isGiven(BOOL done) { return done != FALSE; }
    static bool isGiven(const auto& object) { return object.get() != 0; }
    void judge(std::size_t row, std::uint32_t moment, Code code) const;

    ThreadLine& line_;
    std::mt19937 random_;
};

} // namespace quelta::soak
