// Every call of the two interfaces, and everything that can go wrong with it. A row is a call that succeeds. Then, one run for
// each: a call of the device library that it makes is refused, reports lengths that can't be, gives nothing, throws; and each
// block that it asks the heap for is refused. Whatever comes of it, nothing may be left behind, handed out by halves, written
// beyond its room or changed on the token unknown to the caller, and the same call must succeed when all is well again. What
// becomes of it stands in the text beside the rows, with the error lines of the log: "!" for one that tells of an exception, "N"
// for the number that was reported. The first failure of each row is run once more at level 3, and all its lines stand there.
#pragma once

#include "support/module_test.h"
#include "support/recorded_calls.h"

#include <set>

namespace quelta::test {

class FaultMatrix : public ModuleTest {
protected:
    using Step = std::function<void()>;
    static constexpr ULONG_PTR untouched = 0x1234;
    // Stands for `made` among the values of a row.
    static constexpr ULONG_PTR whatIsMade = 0x5678;

    struct Row {
        // The function's, and after a blank what distinguishes the row.
        std::string name;
        Function::Values values;
        Step prepare = [] {};
        // After a success. A new handle is freed without it.
        Step undo = [] {};
        // What the interface wants left behind: blocks of the heap, hashes on the token.
        int keptBlocks = 0;
        int keptHashes = 0;
        ULONG_PTR handleAfterFailure = untouched;
        DWORD outOfMemory = static_cast<DWORD>(NTE_NO_MEMORY);
    };

    FaultMatrix();
    void TearDown() override;

    // An entry point or a slot. What comes after a blank does not count.
    static const Function& functionNamed(std::string_view name);
    void expect(const Row& row);

    // What a key handle is, which no failure may change.
    std::vector<ByteView> records;
    const Bytes secret = toBytes("the secret has thirty-two bytes.");
    // What a row's `prepare` makes.
    ULONG_PTR made = 0;
    // Where calls put things, anew for each.
    ULONG_PTR out = untouched;
    GuardedBuffer buffer{256}, large{4096};
    DWORD length = 0, largeLength = 0;
    std::set<std::string> names;

private:
    struct Outcome {
        bool succeeded;
        // The last error, or the status.
        DWORD code;
    };
    struct Fault {
        std::string label;
        Step arm = [] {};
        // What the end of an error line says of it.
        std::string said = "";
        // What it reports.
        std::string number = "";
        // Blocks that the heap still makes.
        int allowed = -1;
    };
    struct Run {
        Outcome outcome;
        std::string logged;
        bool refused;
    };
    // By what is wrong.
    using Faults = std::vector<std::pair<std::string, std::vector<Fault>>>;

    Outcome call(const Row& row);
    void undo(const Row& row);
    Faults faultsOf(Call call);
    std::function<void(int)> lengthsOf(Call call);
    Run run(const Row& row, const Fault& fault);
    void refuseMemory(const Row& row, bool logs);

    FakeToken prepared_;
    std::vector<std::string> lines_;
    std::string quiet_;
};

} // namespace quelta::test
