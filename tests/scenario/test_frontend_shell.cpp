// The interactive shell: prompt, line reading and splitting, silent failures, and the result
// it leaves as exit status.
#include <string>

#include "harness.h"

using scen::Bed;
using scen::Result;

namespace {

const std::string P = "\nqmx> ";

// `n` prompts in a row: one per line read, one more for the line that ends the shell.
std::string prompts(int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += P;
    return s;
}

// "adapter", blanks, then `tail`, padded so that the whole line has `len` characters.
std::string padded(size_t len, const std::string& tail) {
    std::string head = "adapter";
    return head + std::string(len - head.size() - tail.size(), ' ') + tail;
}

// A shell run that wrote this output, nothing on standard error, and left this result.
::testing::AssertionResult shell_gave(const Result& r, const std::string& out, int status) {
    if (r.out == out && r.err.empty() && r.status == status) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "status " << r.status << " (expected " << status << ")\nout: [" << r.out
                                         << "]\nexpected: [" << out << "]\nerr: [" << r.err << "]";
}

}  // namespace

// Each row: the shell's whole input, its whole output, the result it leaves; nothing is ever
// written on standard error. Rows marked `quiet` send no request at all.
TEST(FrontendShell, LinesAreReadSplitAndRunSilently) {
    Bed bed = Bed::preset("fc");
    const std::string usage = bed.qmx({"adapter", "--help"}).out;
    const std::string one = P + "1\n";  // a prompt and the output of "adapter --count"
    // The most words a line can carry (255 characters; the last "x" is dropped and the line
    // feed reads as an empty line).
    std::string many = "adapter --count";
    while (many.size() + 2 <= 255) many += " x";
    ASSERT_EQ(many.size(), 255u);
    const std::string nul = std::string("adapter --count\0junk\n", 21);
    const struct {
        const char* what;
        std::string input, out;
        int status;
        bool quiet = false;
    } rows[] = {
        {"end of input ends the shell with success", "", P, 0, true},
        {"quit returns the last result; a failure prints nothing",
         "adapter --count\nfoo bar\nquit\nadapter --count\n", one + P + P, 185},
        {"exit after a success", "foo bar\nadapter --count\nexit\n", P + one + P, 0},
        // "ls" does not replace the previous result.
        {"short lines are ignored", "adapter --lists\nls\n\nab\nquit\n", prompts(5), 162},
        {"-v is no version request here", "-v\nquit\n", prompts(2), 185},
        {"--help is looked up as a class", "--help\n", prompts(2), 185},
        {"class help works at the prompt", "adapter --help\nadapter\n",
         P + usage + P + usage + P, 0, true},
        {"blank-only lines are empty", "adapter --lists\n   \n          \n  \n", prompts(5), 162,
         true},
        {"runs of blanks separate words", "   adapter     --count   \n", one + P, 0},
        {"a tab is part of the word", "adapter\t--count\n", prompts(2), 185},
        {"a tab ends the command word", "adapter --count\t\n", prompts(2), 162},
        // The last character of the line is dropped whatever it is.
        {"final line without a line feed", "adapter --countX", one + P, 0},
        {"final line losing a real character", "adapter --count", prompts(2), 162},
        // 254 characters and a line feed: the line is read whole, "--countX" is no command.
        {"254 characters", padded(254, "--countX") + "\n", prompts(2), 162},
        // 255 characters fill the buffer: "X" is dropped, and the line feed left behind reads
        // as an empty line.
        {"255 characters", padded(255, "--countX") + "\n", one + P + P, 0},
        {"a failed count prints no usage", many + "\n", prompts(3), 166},
        // The line ends at the NUL: the character before it is the one dropped ("--coun").
        {"embedded NUL", nul, prompts(2), 162},
        {"binary input", nul + "\x01\x02\x03\xff\n", prompts(3), 185},
    };
    for (const auto& r : rows) {
        bed.clear_log();
        Result got = bed.shell(r.input);
        EXPECT_EQ(got.out, r.out) << r.what;
        EXPECT_EQ(got.err, "") << r.what;
        EXPECT_EQ(got.status, r.status) << r.what;
        if (r.quiet) {
            EXPECT_TRUE(bed.log().empty()) << r.what;
        }
        EXPECT_TRUE(bed.log_clean()) << r.what;
    }
}

TEST(FrontendShell, LongLinesAreReadInPiecesWithoutHarm) {
    Bed bed = Bed::preset("fc");
    // 255 characters are read, the rest (blanks and the line feed) is the next line.
    Result r = bed.shell(padded(4000, "") + "\nadapter --count\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.substr(r.out.size() - (P.size() + 2 + P.size())), P + "1\n" + P);

    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendShell, EveryLineScansAfreshAndFailuresStaySilent) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_ATTR", "status", "13", "times", "1"});
    EXPECT_TRUE(shell_gave(bed.shell("adapter --count\nadapter --count\n"), P + P + "1\n" + P, 0));
    EXPECT_TRUE(shell_gave(Bed::preset("empty").shell("adapter --list\nquit\n"), prompts(2), 133));
}

TEST(FrontendShell, NoAdapterMessagesAreSilentToo) {
    Bed bed = Bed::from_json(R"({"adapters": [], "drivers": {"kvo": true, "tqe": true}})");
    EXPECT_TRUE(shell_gave(bed.shell("port --query 1/0\nquit\n"), prompts(2), 171));
    Result list = bed.shell("port --query 1/0\nadapter --list\n");
    EXPECT_EQ(list.out, P + P + "No KVO adapters found\n" + P);
    EXPECT_EQ(list.status, 0);
}
