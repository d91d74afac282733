// Writes down what a caller sees and what the module does meanwhile, in the order in which it happens:
//
//   CPSignHash(context1, hash1, AT_SIGNATURE, room 300)
//     D Password not validated or empty -- ask for PIN
//     token getTokenInfo(TOKEN-1) = not signed on
//     D Password dialog show window | Password dialog show window before
//     dialog "Verify User Pin": 1234, Login
//     token validatePassword(TOKEN-1, 1234, 1, 0) = 0
//     = TRUE, length 256, 256 bytes falling from 00
//
// D and E are lines of the log, at the levels debug and error. At level 3 every call begins with a debug line that is its name;
// that one is left out, and its lack is written down. A last error is mentioned where it is not what it was before a call that
// succeeded, or where a call that failed left it. A buffer that is not mentioned was not there, and what is not mentioned of one
// was left as it was.
#pragma once

#include "support/module_test.h"
#include "support/words.h"

namespace quelta::test {

class Recorder {
public:
    // Listens to all three for as long as it lives.
    Recorder(FakeDeviceLibrary& token, LogFolder& log, DialogUser& user);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // One call: `call` makes it and says what it answered.
    void record(const std::string& name, const std::string& arguments, const std::function<std::string()>& call);
    // The same for a function below the entry points. Such a function does not name itself.
    void recordInner(const std::string& name, const std::string& arguments, const std::function<std::string()>& call);
    // A line for a call that somebody else than the token gets meanwhile.
    void writeDown(std::string line);
    // A remark for the reader.
    void note(const std::string& text);

    // While one lives, nothing is written down: for what only prepares.
    class Pause {
    public:
        explicit Pause(Recorder& recorder) : recorder_(recorder) { ++recorder_.pauses_; }
        ~Pause() { --recorder_.pauses_; }
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

    private:
        Recorder& recorder_;
    };

    // Gives a new handle its word, as "key2", also in lines of the log that name its address.
    void introduce(const std::string& kind, ULONG_PTR handle);
    std::string handle(ULONG_PTR handle) const;
    // Bytes that differ from run to run, or say little, and what to write in their place.
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
    // The name that the call under way has not yet given itself.
    std::optional<std::string> unnamed_;
    std::map<ULONG_PTR, std::string> handles_;
    std::map<std::string, int> counts_;
    std::vector<std::pair<std::string, std::string>> words_;
};

} // namespace quelta::test
