#pragma once
// Scenario harness: a fresh emulated host (test bed) per test, the real qmx run on it, and
// access to the bed's log, configuration file, state and fault rules.
//
//   scen::Bed bed = scen::Bed::preset("fc");
//   scen::Result r = bed.qmx({"adapter", "--list"});
//   EXPECT_EQ(r.status, 0);
//   EXPECT_EQ(r.out, "...");
//   EXPECT_TRUE(bed.log_clean());
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace scen {

struct Result {
    int status = -1;  // exit status; 128 + signal when killed by one; -1 when it never ran
    int signal = 0;   // the signal that killed it (0: it exited), told apart from exit 128 + n
    std::string out;  // standard output
    std::string err;  // standard error
};

// A signal sent to a running program once its standard output holds `after`.
struct Interrupt {
    std::string after;
    int signal;
};

// Runs argv (argv[0] a path) with `input` on standard input; the child gets `env_add` on top
// of this process's environment. Gives up after `timeout_s` seconds (status -1, killed): a guard
// against hangs, not a time limit (a boot update of every adapter of the large host takes about
// two minutes in the sanitizer build on a busy machine). With
// an interrupt, its signal is sent once (to the program, which kvosim run becomes).
Result run_process(const std::vector<std::string>& argv, const std::string& input = "",
                const std::vector<std::string>& env_add = {}, int timeout_s = 240,
                const Interrupt* interrupt = nullptr);

// Paths of the built programs.
std::string qmx_bin();
std::string kvosim_bin();
std::string probe_bin();  // kvosim_probe, next to kvosim

class Bed {
public:
    // A bed from a bundled preset (empty, fc, demo, large; options are further words of
    // kvosim create, such as {"--sysfs-order", "hash"}) or a host description (JSON text, the
    // schema of sim/README.md). A bed that cannot be made fails the test at once.
    static Bed preset(const std::string& name, const std::vector<std::string>& options = {});
    static Bed from_json(const std::string& host_json);

    Bed(Bed&& o) noexcept;
    Bed& operator=(Bed&&) = delete;
    Bed(const Bed&) = delete;
    ~Bed();  // removes the bed (kept when KVOSIM_KEEP is set in the environment)

    const std::string& dir() const { return dir_; }
    std::string root() const { return dir_ + "/root"; }  // the emulated file system

    // qmx with these arguments (one-shot), or "qmx shell" fed `input` on standard input.
    Result qmx(const std::vector<std::string>& args, const std::string& input = "") const;
    Result shell(const std::string& input) const;
    // qmx with these arguments, sent a signal once its output holds some text.
    Result qmx_interrupted(const std::vector<std::string>& args, const Interrupt& interrupt) const;
    // Any program run on this bed (through kvosim run).
    Result run(const std::vector<std::string>& argv, const std::string& input = "") const;
    // kvosim_probe with these arguments, on this bed.
    Result probe(const std::vector<std::string>& args) const;
    // kvosim SUBCOMMAND DIR ARGS... (for example kvosim("show")).
    Result kvosim(const std::string& sub, const std::vector<std::string>& args = {}) const;

    // Adds a fault rule (the words after "kvosim fault DIR"); fails the test if refused.
    void fault(const std::vector<std::string>& rule) const;
    void clear_faults() const { fault({"clear"}); }

    // The log: one line per driver request.
    std::vector<std::string> log() const;
    void clear_log() const;
    // Lines of malformed (BAD) or unemulated (UNHANDLED) requests.
    std::vector<std::string> bad_lines() const;
    // Success when the log has no such line; otherwise the lines, for the failure message.
    ::testing::AssertionResult log_clean() const;

    // /etc/kvo.conf of the bed: its text, or nullopt when the file does not exist.
    std::optional<std::string> conf() const;
    void set_conf(const std::string& text) const;
    void remove_conf() const;

    // state.json (the emulated hardware and driver state).
    nlohmann::json state() const;
    std::string state_text() const;

private:
    Bed(std::string top, std::string dir) : top_(std::move(top)), dir_(std::move(dir)) {}
    static Bed make(const std::vector<std::string>& create_args, const std::string& host_json);
    std::string top_;  // the temporary directory holding the bed
    std::string dir_;
};

// Reads or writes a whole file; read returns nullopt when it cannot be opened.
std::optional<std::string> read_text(const std::string& path);
bool write_text(const std::string& path, const std::string& text);

// Splits text into lines (without their line feeds).
std::vector<std::string> lines(const std::string& text);

// "0x%X" of a request code.
std::string hex(uint32_t v);

// The value of a "key=..." line of the output (probe replies), "" when absent.
std::string value(const Result& r, const std::string& key);

// A command that succeeded with exactly this output and nothing on standard error.
::testing::AssertionResult prints(const Result& r, const std::string& out);
// A command that failed with this exit status and message and printed nothing else.
::testing::AssertionResult fails(const Result& r, int status, const std::string& err);
// The lines of a text that contain `part`.
std::vector<std::string> lines_with(const std::string& text, const std::string& part);
// The log lines of the requests with this name (the code's name as the log writes it).
std::vector<std::string> requests(const Bed& bed, const std::string& name);

}  // namespace scen
