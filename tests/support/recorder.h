// Records what a caller sees and what the module does meanwhile, in order:
//
//   CPSignHash(context1, hash1, AT_SIGNATURE, room 300)
//     D Password not validated or empty -- ask for PIN
//     token getTokenInfo(TOKEN-1) = not signed on
//     D Password dialog show window | Password dialog show window before
//     dialog "Verify User Pin": 1234, Login
//     token validatePassword(TOKEN-1, 1234, 1, 0) = 0
//     = TRUE, length 256, 256 bytes falling from 00
//
// D and E are lines of the log, at the levels debug and error. At level 3 every call first logs its name; the record leaves this
// line out, and says so if it is missing. A successful call is recorded with its last error only if the call changed the last
// error, a failed call with "last error kept" if it did not. A buffer that is not mentioned was not passed. Bytes that are not
// mentioned did not change.
#pragma once

#include "support/module_test.h"
#include "support/words.h"

namespace quelta::test {

class Recorder {
public:
    // Listens to all three while it lives.
    Recorder(FakeDeviceLibrary& token, LogFolder& log, DialogUser& user);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Records one call. `call` makes it and returns its answer.
    void record(const std::string& name, const std::string& arguments, const std::function<std::string()>& call);
    // Does the same for a function below the entry points. Such a function does not log its name.
    void recordInner(const std::string& name, const std::string& arguments, const std::function<std::string()>& call);
    // Adds a line about another call that the module makes meanwhile.
    void writeDown(std::string line);
    // Adds a remark for the reader.
    void note(const std::string& text);

    // While an object lives, nothing is recorded. It is for calls that only prepare.
    class Pause {
    public:
        explicit Pause(Recorder& recorder) : recorder_(recorder) { ++recorder_.pauses_; }
        ~Pause() { --recorder_.pauses_; }
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

    private:
        Recorder& recorder_;
    };

    // Gives a new handle a word such as "key2". The word also replaces the address in lines of the log.
    void introduce(const std::string& kind, ULONG_PTR handle);
    std::string handle(ULONG_PTR handle) const;
    // Writes `word` in place of these bytes, which differ from run to run or say little.
    void call(ByteView bytes, const std::string& word);

    const std::vector<std::string>& lines() const { return lines_; }

private:
    void takeLog();
    void writeLogLine(const LogLine& line);
    std::string inWords(std::string text) const;

    FakeDeviceLibrary& token_;
    LogFolder& log_;
    DialogUser& user_;
    int pauses_ = 0;
    std::recursive_mutex mutex_;
    std::vector<std::string> lines_;
    // The name that the running call has not yet logged.
    std::optional<std::string> unnamed_;
    std::map<ULONG_PTR, std::string> handles_;
    std::map<std::string, int> counts_;
    std::vector<std::pair<std::string, std::string>> words_;
};

} // namespace quelta::test
