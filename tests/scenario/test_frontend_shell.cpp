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

}  // namespace

TEST(FrontendShell, EndOfInputEndsTheShellWithSuccess) {
    Bed bed = Bed::preset("fc");
    Result r = bed.shell("");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, P);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendShell, RunsCommandsSilentlyAndQuitReturnsTheLastResult) {
    Bed bed = Bed::preset("fc");
    Result r = bed.shell("adapter --count\nfoo bar\nquit\nadapter --count\n");
    EXPECT_EQ(r.out, P + "1\n" + P + P);
    EXPECT_EQ(r.err, "");  // the failure of "foo bar" prints nothing
    EXPECT_EQ(r.status, 185);

    Result ok = bed.shell("foo bar\nadapter --count\nexit\n");
    EXPECT_EQ(ok.out, P + P + "1\n" + P);
    EXPECT_EQ(ok.status, 0);
    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendShell, ShortLinesAreIgnoredExceptDashV) {
    Bed bed = Bed::preset("fc");
    // "ls" does not replace the previous result.
    Result r = bed.shell("adapter --lists\nls\n\nab\nquit\n");
    EXPECT_EQ(r.out, prompts(5));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 162);
    // "-v" is no version request here: it is looked up as a class and fails silently.
    Result v = bed.shell("-v\nquit\n");
    EXPECT_EQ(v.out, prompts(2));
    EXPECT_EQ(v.err, "");
    EXPECT_EQ(v.status, 185);
    Result help = bed.shell("--help\n");
    EXPECT_EQ(help.out, prompts(2));
    EXPECT_EQ(help.status, 185);
}

TEST(FrontendShell, ClassHelpWorksAtThePrompt) {
    Bed bed = Bed::preset("fc");
    const std::string usage = bed.qmx({"adapter", "--help"}).out;
    Result r = bed.shell("adapter --help\nadapter\n");
    EXPECT_EQ(r.out, P + usage + P + usage + P);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendShell, BlankOnlyLinesAreEmpty) {
    Bed bed = Bed::preset("fc");
    Result r = bed.shell("adapter --lists\n   \n          \n  \n");
    EXPECT_EQ(r.out, prompts(5));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 162);
    EXPECT_TRUE(bed.log().empty());
}

TEST(FrontendShell, OnlySingleBlanksSeparateWords) {
    Bed bed = Bed::preset("fc");
    Result runs = bed.shell("   adapter     --count   \n");
    EXPECT_EQ(runs.out, P + "1\n" + P);
    EXPECT_EQ(runs.status, 0);
    // A tab is part of the word.
    Result tab = bed.shell("adapter\t--count\n");
    EXPECT_EQ(tab.out, prompts(2));
    EXPECT_EQ(tab.status, 185);
    Result tail = bed.shell("adapter --count\t\n");
    EXPECT_EQ(tail.status, 162);
}

TEST(FrontendShell, LastCharacterOfTheLineIsDroppedWhateverItIs) {
    Bed bed = Bed::preset("fc");
    // A final line without a line feed loses its last real character.
    Result cut = bed.shell("adapter --countX");
    EXPECT_EQ(cut.out, P + "1\n" + P);
    EXPECT_EQ(cut.status, 0);
    Result lost = bed.shell("adapter --count");
    EXPECT_EQ(lost.out, prompts(2));
    EXPECT_EQ(lost.status, 162);  // ran as "--coun"

    // 254 characters and a line feed: the line is read whole, "--countX" is no command.
    Result whole = bed.shell(padded(254, "--countX") + "\n");
    EXPECT_EQ(whole.out, prompts(2));
    EXPECT_EQ(whole.status, 162);
    // 255 characters fill the buffer: "X" is dropped, and the line feed left behind reads as
    // an empty line.
    Result full = bed.shell(padded(255, "--countX") + "\n");
    EXPECT_EQ(full.out, P + "1\n" + P + P);
    EXPECT_EQ(full.status, 0);
    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendShell, LongLinesAreReadInPiecesWithoutHarm) {
    Bed bed = Bed::preset("fc");
    // 255 characters are read, the rest (blanks and the line feed) is the next line.
    Result r = bed.shell(padded(4000, "") + "\nadapter --count\n");
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.substr(r.out.size() - (P.size() + 2 + P.size())), P + "1\n" + P);

    // The most words a line can carry (255 characters; the last "x" is dropped and the line
    // feed reads as an empty line).
    std::string many = "adapter --count";
    while (many.size() + 2 <= 255) many += " x";
    ASSERT_EQ(many.size(), 255u);
    Result words = bed.shell(many + "\n");
    EXPECT_EQ(words.out, prompts(3));  // a failed count prints no usage in the shell
    EXPECT_EQ(words.status, 166);
    EXPECT_TRUE(bed.log_clean());
}

TEST(FrontendShell, BinaryAndEmbeddedNulInputIsHarmless) {
    Bed bed = Bed::preset("fc");
    // The line ends at the NUL: its last character before it is the one dropped, so the
    // command runs as "--coun".
    std::string input = std::string("adapter --count\0junk\n", 21);
    Result nul = bed.shell(input);
    EXPECT_EQ(nul.out, prompts(2));
    EXPECT_EQ(nul.status, 162);
    Result bin = bed.shell(input + "\x01\x02\x03\xff\n");
    EXPECT_EQ(bin.out, prompts(3));
    EXPECT_EQ(bin.err, "");
    EXPECT_EQ(bin.status, 185);
}

TEST(FrontendShell, EveryLineScansAfreshAndFailuresStaySilent) {
    Bed bed = Bed::preset("fc");
    bed.fault({"request", "IOC_GET_ATTR", "status", "13", "times", "1"});
    Result r = bed.shell("adapter --count\nadapter --count\n");
    EXPECT_EQ(r.out, P + P + "1\n" + P);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);

    Result no_driver = Bed::preset("empty").shell("adapter --list\nquit\n");
    EXPECT_EQ(no_driver.out, prompts(2));
    EXPECT_EQ(no_driver.err, "");
    EXPECT_EQ(no_driver.status, 133);
}

TEST(FrontendShell, NoAdapterMessagesAreSilentToo) {
    Bed bed = Bed::from_json(R"({"adapters": [], "drivers": {"kvo": true, "tqe": true}})");
    Result r = bed.shell("port --query 1/0\nquit\n");
    EXPECT_EQ(r.out, prompts(2));
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 171);
    Result list = bed.shell("port --query 1/0\nadapter --list\n");
    EXPECT_EQ(list.out, P + P + "No KVO adapters found\n" + P);
    EXPECT_EQ(list.status, 0);
}
