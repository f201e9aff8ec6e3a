// qmxdoc: writes the manual page qmx(8) and the bash completion from the command table and the
// usage texts that qmx itself prints, so that neither can drift from the program.
//   qmxdoc TEMPLATE MANPAGE COMPLETION
// TEMPLATE is doc/qmx.8.in; its @VERSION@, @COMMANDS@ and @EXITSTATUS@ lines are replaced.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kvol.h"
#include "qmx.h"

namespace {

[[noreturn]] void die(const std::string& why) {
    fprintf(stderr, "qmxdoc: %s\n", why.c_str());
    exit(1);
}

// What a printing function writes to one of the standard streams.
template <class F>
std::string capture(FILE* stream, F&& print) {
    fflush(stream);
    FILE* tmp = tmpfile();
    if (tmp == nullptr) die("tmpfile failed");
    const int fd = fileno(stream);
    const int saved = dup(fd);
    dup2(fileno(tmp), fd);
    print();
    fflush(stream);
    dup2(saved, fd);
    close(saved);
    std::string text;
    rewind(tmp);
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, tmp)) > 0;) text.append(buf, n);
    fclose(tmp);
    return text;
}

// Text for roff: backslashes doubled, a leading dot or quote protected, "-" as a real minus.
std::string roff(const std::string& s) {
    std::string o;
    for (char c : s) {
        if (c == '\\') o += "\\e";
        else if (c == '-') o += "\\-";
        else o += c;
    }
    if (!o.empty() && (o[0] == '.' || o[0] == '\'')) o.insert(0, "\\&");
    return o;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t"), e = s.find_last_not_of(" \t");
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

struct Command {
    std::string name;
    std::vector<std::string> synopses;  // what follows the command word, one per form
    std::vector<std::string> help;
    bool built = false;
};

struct Class {
    std::string name;
    bool hidden = false;
    std::string example;
    std::vector<Command> commands;
};

// The class's extended usage text, split into its commands; commands without a usage block
// still appear with the table's name.
Class read_class(const qmx_cmd_class_desc_t& c) {
    Class k;
    k.name = c.name;
    k.hidden = (c.os & E_HIDDEN) != 0;
    std::map<std::string, bool> built;
    for (int i = 0; i < c.num_cmd; i++) built[c.cmds[i].name] = c.cmds[i].handler != nullptr;
    std::istringstream text(capture(stdout, [&] { c.usage(1); }));
    Command* cur = nullptr;
    for (std::string line; std::getline(text, line);) {
        if (line.rfind("Example: ", 0) == 0) {
            k.example = line.substr(9);
        } else if (line.rfind("\t--", 0) == 0) {
            const std::string form = line.substr(1);
            const std::string word = form.substr(0, form.find(' '));
            if (cur == nullptr || cur->name != word) {
                k.commands.push_back({word, {}, {}, built.count(word) ? built[word] : false});
                cur = &k.commands.back();
            }
            const size_t sp = form.find(' ');
            cur->synopses.push_back(sp == std::string::npos ? "" : form.substr(sp + 1));
        } else if (line.rfind("\t\t", 0) == 0 && cur != nullptr) {
            cur->help.push_back(trim(line));
        } else if (trim(line).empty() && cur != nullptr && !cur->help.empty()) {
            cur->help.push_back("");
        }
    }
    for (auto& [word, has] : built) {
        bool listed = false;
        for (const Command& cmd : k.commands) listed = listed || cmd.name == word;
        if (!listed) k.commands.push_back({word, {""}, {}, has});
    }
    for (Command& cmd : k.commands)
        while (!cmd.help.empty() && cmd.help.back().empty()) cmd.help.pop_back();
    return k;
}

std::string commands_section(const std::vector<Class>& classes) {
    std::ostringstream o;
    for (const Class& k : classes) {
        o << ".SS " << k.name << (k.hidden ? " (listed by \\fBqmx \\-\\-ehelp\\fR)" : "") << "\n";
        if (!k.example.empty()) o << "Example: \\fBqmx " << roff(trim(k.example.substr(4))) << "\\fR\n";
        for (const Command& cmd : k.commands) {
            o << ".TP\n";
            for (size_t i = 0; i < cmd.synopses.size(); i++)
                o << (i ? ".TQ\n" : "") << "\\fBqmx " << k.name << " " << roff(cmd.name) << "\\fR "
                  << roff(cmd.synopses[i]) << "\n";
            bool first = true;
            for (const std::string& h : cmd.help) {
                if (h.empty()) {
                    o << ".IP\n";
                    first = true;
                    continue;
                }
                o << (first ? "" : ".br\n") << roff(h) << "\n";
                first = false;
            }
            if (!cmd.built) o << (first ? "" : ".br\n") << "(Not available in this version: answers \"Command not supported\".)\n";
        }
    }
    return o.str();
}

// The front end's own errors: their numbers, what a shell sees of them, and their messages.
std::string exit_status_section() {
    std::ostringstream o;
    char prog[] = "qmx", cls[] = "CLASS", cmd[] = "COMMAND", id[] = "ID", arg[] = "ARGUMENT";
    char* argv[] = {prog, cls, cmd, id, arg, nullptr};
    for (int code = E_CLI_TOO_FEW_ARGS; code <= E_CLI_LIST_ERR; code++) {
        if (code == E_CLI_HELP) continue;  // help was asked for: success
        std::string msg = capture(stderr, [&] { capture(stdout, [&] { print_error_string(code, argv); }); });
        msg = trim(msg.substr(0, msg.find('\n')));
        if (msg.rfind("ERROR: ", 0) == 0) msg = msg.substr(7);
        o << ".TP\n.B " << (code & 0xFF) << "\n(" << code << ") " << roff(msg.empty() ? "(the command has printed what went wrong)" : msg) << "\n";
    }
    return o.str();
}

// bash completion: class words, the command words of a class, the options of a command.
std::string completion(const std::vector<Class>& classes) {
    std::ostringstream o;
    o << "# bash completion for qmx(8); generated from the command table by qmxdoc.\n"
         "_qmx() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} words=\n"
         "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
         "    words=\"shell --help --ehelp --version";
    for (const Class& k : classes)
        if (!k.hidden) o << " " << k.name;
    o << "\"\n"
         "  elif [ \"$COMP_CWORD\" -eq 2 ]; then\n"
         "    case ${COMP_WORDS[1]} in\n";
    const std::regex opt("(^|[\\s\\[|])(-[A-Za-z][A-Za-z0-9_]*)");
    std::ostringstream opts;
    for (const Class& k : classes) {
        o << "      " << k.name << ") words=\"--help";
        for (const Command& cmd : k.commands) o << " " << cmd.name;
        o << "\" ;;\n";
        for (const Command& cmd : k.commands) {
            std::set<std::string> found;
            for (const std::string& s : cmd.synopses)
                for (std::sregex_iterator it(s.begin(), s.end(), opt), end; it != end; ++it) found.insert((*it)[2]);
            if (found.empty()) continue;
            opts << "      \"" << k.name << " " << cmd.name << "\") words=\"";
            bool first = true;
            for (const std::string& f : found) {
                opts << (first ? "" : " ") << f;
                first = false;
            }
            opts << "\" ;;\n";
        }
    }
    o << "    esac\n"
         "  elif [[ $cur == -* ]]; then\n"
         "    case \"${COMP_WORDS[1]} ${COMP_WORDS[2]}\" in\n"
      << opts.str()
      << "    esac\n"
         "  fi\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
         "}\n"
         "complete -F _qmx qmx\n";
    return o.str();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) die("usage: qmxdoc TEMPLATE MANPAGE COMPLETION");
    std::vector<Class> classes;
    for (int i = 0; i < qmx_class_count; i++) classes.push_back(read_class(qmx_class_desc[i]));

    std::ifstream in(argv[1]);
    if (!in) die(std::string(argv[1]) + ": cannot read");
    std::string version = qmx_get_version();
    version = version.substr(0, version.find(' '));
    std::ostringstream page;
    for (std::string line; std::getline(in, line);) {
        if (line == "@COMMANDS@") page << commands_section(classes);
        else if (line == "@EXITSTATUS@") page << exit_status_section();
        else {
            for (size_t p; (p = line.find("@VERSION@")) != std::string::npos;) line.replace(p, 9, version);
            page << line << "\n";
        }
    }
    std::ofstream man(argv[2], std::ios::trunc), comp(argv[3], std::ios::trunc);
    man << page.str();
    comp << completion(classes);
    if (!man || !comp) die("cannot write the outputs");
    return 0;
}
