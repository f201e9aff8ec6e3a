// The process entry and the spine of every command: class and command lookup, the argument
// count check, the adapter scan, identifier resolution, the handler call, and the messages.
// The shell only splits lines and feeds the same dispatcher, so every command behaves the
// same one-shot and interactively.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "qmx.h"
#include "qmxwrapper.h"

int qmx_class = 0;
bool bNoAd = false;

namespace {

// kvol_libinit's application id for the command-line utility.
constexpr int QMX_APP_ID = 0;
// The shell reads at most this many bytes per line, terminator included.
constexpr int QMX_SHELL_LINE = 256;

const char* const qmx_cmd_type_str[] = {
    "Common Adapter (HBA/CNA) Commands:",
    "CNA specific Commands:",
    "FC/FCoE specific Commands:",
    "ETH specific Commands:",
    "--",
};
static_assert(std::size(qmx_cmd_type_str) == TYPE_MAX + 1);

const char qmx_no_adapter_msg[] = "ERROR: No Torvane adapter Found\n";

bool is_sentinel(const qmx_cmd_class_desc_t& c) { return strcmp(c.name, "none") == 0; }

bool valid_class(int index) {
    return index >= 0 && index < qmx_class_count;
}

// argv[k], or "" when the vector ends before k (handlers may return codes whose message
// names a word the user did not type).
const char* arg_or_empty(char** argv, int k) {
    if (!argv) return "";
    for (int i = 0; i < k; ++i)
        if (!argv[i]) return "";
    return argv[k] ? argv[k] : "";
}

void print_class_usage() {
    if (valid_class(qmx_class) && qmx_class_desc[qmx_class].usage)
        qmx_class_desc[qmx_class].usage(0);
}

// Prints the no-adapter text instead of an identifier message when the scan found nothing.
void print_id_error(const char* fmt, const char* word) {
    if (bNoAd)
        fputs(qmx_no_adapter_msg, stderr);
    else
        fprintf(stderr, fmt, word);
}

// The storage side first; an Ethernet function is tried only when that fails.
int resolve_port(char* word, qmx_drv_path_t path, qmx_id_t* id) {
    switch (path) {
    case PATH_FC:
        return qmx_get_port_id(word, QMX_SIDE_FC, id);
    case PATH_ETH:
        return qmx_get_port_id(word, QMX_SIDE_ETH, id);
    case PATH_ANY:
    case PATH_ANY_OPER: {
        int r = qmx_get_port_id(word, QMX_SIDE_FC, id);
        if (r != 0) r = qmx_get_port_id(word, QMX_SIDE_ETH, id);
        if (r == 0 && path == PATH_ANY_OPER) kvol_ioc_get_operational_pf(&id->kvol);
        return r;
    }
    }
    return E_CLI_INCORRECT_PORT_ID;
}

int resolve_pcifn_strict(char* word, qmx_drv_path_t path, qmx_id_t* id) {
    if (path == PATH_ANY_OPER) return 0;
    int r = 0;
    if (path == PATH_FC || path == PATH_ANY) {
        r = qmx_get_pcifn_id_strict(word, QMX_SIDE_FC, id);
        if (r == 0) return 0;
    }
    if (path == PATH_ETH || path == PATH_ANY) return qmx_get_pcifn_id_strict(word, QMX_SIDE_ETH, id);
    return r;
}

// Everything one shell line owns; released on every path out of a pass.
struct shell_pass {
    char* line = nullptr;
    l_node* tokens = nullptr;
    char** vec = nullptr;
    int vec_len = 0;

    shell_pass() = default;
    shell_pass(const shell_pass&) = delete;
    shell_pass& operator=(const shell_pass&) = delete;
    ~shell_pass() {
        if (vec) {
            for (int i = 0; i < vec_len; ++i) free(vec[i]);
            free(vec);
        }
        qmx_list_free(tokens);
        free(line);
    }
};

// Splits at single blanks only; runs of blanks give no empty tokens. Tabs stay in the token.
void split_line(char* line, l_node** list) {
    char* p = line;
    while (*p) {
        while (*p == ' ') ++p;
        if (!*p) break;
        char* start = p;
        while (*p && *p != ' ') ++p;
        if (*p) *p++ = '\0';
        qmx_list_append(list, start);
    }
}

int qmx_shell() {
    int last = 0;
    for (;;) {
        shell_pass pass;
        pass.line = static_cast<char*>(calloc(QMX_SHELL_LINE, 1));
        if (!pass.line) return E_CLI_SYSTEM_BUSY;
        printf("\nqmx> ");
        fflush(stdout);
        if (!fgets(pass.line, QMX_SHELL_LINE, stdin)) return last;

        // The last character read is dropped whatever it is: normally the newline.
        size_t len = strlen(pass.line);
        if (len > 0) pass.line[--len] = '\0';

        if (strcmp(pass.line, "quit") == 0 || strcmp(pass.line, "exit") == 0) return last;
        if (len < 3 && strcmp(pass.line, "-v") != 0) continue;

        split_line(pass.line, &pass.tokens);
        int ntok = 0;
        for (l_node* n = pass.tokens; n; n = n->next) ++ntok;
        if (ntok == 0) continue;  // only blanks

        // One spare null entry so that handlers looking one word too far see no word.
        pass.vec = static_cast<char**>(calloc(static_cast<size_t>(ntok) + 2, sizeof(char*)));
        if (!pass.vec) return E_CLI_SYSTEM_BUSY;
        pass.vec_len = ntok + 1;
        pass.vec[0] = strdup("qmx");
        if (!pass.vec[0]) return E_CLI_SYSTEM_BUSY;
        int i = 1;
        for (l_node* n = pass.tokens; n; n = n->next, ++i) {
            pass.vec[i] = strdup(n->token);
            if (!pass.vec[i]) return E_CLI_SYSTEM_BUSY;
        }

        last = qmx_main(ntok + 1, pass.vec);
        if (last == -1) return -1;
    }
}

bool lib_up = false;

[[maybe_unused]] int qmx_run(int argc, char** argv) {
    if (argc < 2) {
        qmx_print_help(0);
        return 0;
    }
    if (argc == 2 && strcmp(argv[1], "shell") != 0 && qmx_internal_command(argv[1])) return 0;

    kvo_status_t st = kvol_libinit(QMX_APP_ID);
    if (st != KVO_STATUS_OK && st != KVO_STATUS_NO_VPORT_LOCK) {
        printf("Unable to open configration file,  retry later\n");
        return 0;
    }
    lib_up = true;
    if (st == KVO_STATUS_NO_VPORT_LOCK) fprintf(stderr, "Warning: %s\n", kvol_status_to_string(st));

    int r = qmx_cmdline_parser(argc, argv);
    lib_up = false;
    kvol_libexit();
    return r;
}

}  // namespace

void qmx_list_append(l_node** list, const char* token) {
    if (!list || !token) return;
    auto* node = static_cast<l_node*>(calloc(1, sizeof(l_node)));
    if (!node) return;
    node->token = strdup(token);
    if (!node->token) {
        free(node);
        return;
    }
    l_node** tail = list;
    while (*tail) tail = &(*tail)->next;
    *tail = node;
}

void qmx_list_free(l_node* list) {
    while (list) {
        l_node* next = list->next;
        free(list->token);
        free(list);
        list = next;
    }
}

int qmx_get_class_id(const char* name, int* index) {
    if (!name) return E_CLI_CLASS_NOT_SUPPORTED;
    for (int i = 0; !is_sentinel(qmx_class_desc[i]); ++i) {
        if (strcmp(qmx_class_desc[i].name, name) == 0) {
            if (index) *index = i;
            return 0;
        }
    }
    return E_CLI_CLASS_NOT_SUPPORTED;
}

int qmx_get_cmd_id(const char* name, int class_index, int* index) {
    if (!name || !valid_class(class_index)) return E_CLI_CMD_NOT_SUPPORTED;
    const qmx_cmd_class_desc_t& c = qmx_class_desc[class_index];
    for (int i = 0; i < c.num_cmd; ++i) {
        if (strcmp(c.cmds[i].name, name) == 0) {
            if (index) *index = i;
            return 0;
        }
    }
    return E_CLI_CMD_NOT_SUPPORTED;
}

int qmx_validate_arg_count(int class_index, int cmd_index, int count) {
    if (!valid_class(class_index) || cmd_index < 0 ||
        cmd_index >= qmx_class_desc[class_index].num_cmd)
        return E_CLI_INCORRECT_ARG;
    const qmx_cmd_desc_t& cmd = qmx_class_desc[class_index].cmds[cmd_index];
    if (count < cmd.min_args || count > cmd.max_args) return E_CLI_INCORRECT_ARG;
    return 0;
}

int qmx_get_id(char* word, int class_index, int cmd_index, qmx_id_t* id) {
    if (!word || !id || !valid_class(class_index) || cmd_index < 0 ||
        cmd_index >= qmx_class_desc[class_index].num_cmd)
        return E_CLI_CMD_NOT_SUPPORTED;
    const qmx_cmd_desc_t& cmd = qmx_class_desc[class_index].cmds[cmd_index];
    switch (cmd.id_desc) {
    case PORT_ID:
    case PCIFN_ID:
        return resolve_port(word, cmd.drv_path, id);
    case ADAPTER_ID:
        id->adapter = qmx_get_adapter_id(word);
        if (!id->adapter) return E_CLI_INCORRECT_ADAPTER_ID;
        id->ad_ioc = kvol_adapter_get_first_ioc(id->adapter);
        return 0;
    case PORT_FIRST_IOC: {
        int pfn = -1;
        return qmx_get_first_ioc(word, &id->port_ioc.kvol, &id->port_ioc.port, &pfn, 0);
    }
    case PCIFN_FIRST_IOC:
        return qmx_get_first_ioc(word, &id->pfn_ioc.kvol, &id->pfn_ioc.port, &id->pfn_ioc.pfn, 1);
    case PCIFN_ID_STRICT:
        return resolve_pcifn_strict(word, cmd.drv_path, id);
    case TEAM_ID:
    case ID_NONE:
        return 0;
    }
    return 0;
}

int qmx_main(int argc, char** argv) {
    bNoAd = false;
    if (!qmx_has_arg(argc, QMX_ARG_CLASS) || !argv || !argv[QMX_ARG_CLASS]) return E_CLI_CLASS_NOT_SUPPORTED;

    int cls = 0;
    if (qmx_get_class_id(argv[QMX_ARG_CLASS], &cls) != 0) return E_CLI_CLASS_NOT_SUPPORTED;
    qmx_class = cls;
    const qmx_cmd_class_desc_t& c = qmx_class_desc[cls];

    // Help is answered before any lookup or scan.
    if (!qmx_has_arg(argc, QMX_ARG_CMD)) {
        c.usage(0);
        return 0;
    }
    if (strcmp(argv[QMX_ARG_CMD], "--help") == 0) {
        c.usage(0);
        return 0;
    }
    if (strcmp(argv[QMX_ARG_CMD], "--ehelp") == 0) {
        c.usage(1);
        return 0;
    }

    int cmd = 0;
    if (qmx_get_cmd_id(argv[QMX_ARG_CMD], cls, &cmd) != 0) return E_CLI_CMD_NOT_SUPPORTED;
    if (qmx_validate_arg_count(cls, cmd, argc - QMX_ARG_ID) != 0) return E_CLI_INCORRECT_ARG;

    // No adapter at all is not an error here: the identifier messages report it.
    int found = kvol_adapter_scan();
    if (found < 1) {
        if (found == 0) bNoAd = true;
        kvo_status_t st = kvol_get_last_error();
        if (st != KVO_STATUS_OK) {
            kvol_adapter_free();
            return st;
        }
    }
    if (kvol_get_last_error() == KVO_STATUS_REG_FAIL)
        fprintf(stderr, "Warning: %s\n", kvol_status_to_string(KVO_STATUS_REG_FAIL));

    qmx_id_t id{};
    if (qmx_has_arg(argc, QMX_ARG_ID)) {
        int r = qmx_get_id(argv[QMX_ARG_ID], cls, cmd, &id);
        if (r != 0) {
            kvol_adapter_free();
            return r;
        }
    }

    qmx_cmd_handler_t handler = c.cmds[cmd].handler;
    if (!handler) {
        kvol_adapter_free();
        return E_CLI_CMD_NOT_SUPPORTED;
    }
    int r = handler(argv, argc, &id);
    kvol_adapter_free();
    return r;
}

int qmx_cmdline_parser(int argc, char** argv) {
    if (argc < 2 || !argv || !argv[1]) return E_CLI_CLASS_NOT_SUPPORTED;
    if (strcmp(argv[1], "shell") != 0) {
        int r = qmx_main(argc, argv);
        if (r != 0) {
            if (r <= static_cast<int>(KVO_STATUS_MAX_VAL))
                fprintf(stderr, "ERROR: %s\n", kvol_status_to_string(r));
            else
                print_error_string(r, argv);
        }
        return r;
    }
    if (argc >= 3) {
        printf("too many arguments for command \"shell\"\n");
        return E_CLI_INCORRECT_ARG;
    }
    return qmx_shell();
}

void print_error_string(int code, char** argv) {
    switch (code) {
    case E_CLI_TOO_FEW_ARGS:
        fprintf(stderr, "ERROR: Too few arguments/options provided for the command \"%s\"\n\n",
                arg_or_empty(argv, QMX_ARG_CLASS));
        print_class_usage();
        break;
    case E_CLI_CMD_NOT_SUPPORTED:
        fprintf(stderr, "ERROR: \"%s\" Command not supported\n\n", arg_or_empty(argv, QMX_ARG_CMD));
        break;
    case E_CLI_SYSTEM_BUSY:
        fprintf(stderr, "ERROR: System can not provide the required resources\n");
        break;
    case E_CLI_BAD_ARG:
        fprintf(stderr, "ERROR: Please check the argument \"%s\" for command \"%s\"\n",
                arg_or_empty(argv, QMX_ARG_ID), arg_or_empty(argv, QMX_ARG_CMD));
        break;
    case E_CLI_OPEN_ADAPTER_FAILED:
        fprintf(stderr, "ERROR: Unable to open the adapter handle\n");
        break;
    case E_CLI_INCORRECT_ARG:
        fprintf(stderr, "ERROR: Incorrect argument count for command \"%s\"\n",
                arg_or_empty(argv, QMX_ARG_CMD));
        print_class_usage();
        break;
    case E_CLI_INCORRECT_CMD:
        fprintf(stderr,
                "ERROR: command \"%s\" syntax is incorrect or one of the parameters is "
                "incorrect\n",
                arg_or_empty(argv, QMX_ARG_CMD));
        break;
    case E_CLI_BAD_WWN:
        fprintf(stderr, "ERROR: Incorrectly formatted WWN\n");
        break;
    case E_CLI_BAD_MAC:
        fprintf(stderr, "ERROR: Incorrectly formatted MAC\n");
        break;
    case E_CLI_BAD_LUN:
        fprintf(stderr, "ERROR: Incorrectly formatted LUN\n");
        break;
    case E_CLI_INCORRECT_PORT_ID:
        print_id_error("ERROR: port id \"%s\" in command is incorrect\n", arg_or_empty(argv, QMX_ARG_ID));
        break;
    case E_CLI_INCORRECT_ADAPTER_ID:
        print_id_error("ERROR: adapter id \"%s\" in command is incorrect\n",
                       arg_or_empty(argv, QMX_ARG_ID));
        break;
    case E_CLI_INCORRECT_PCIFN_ID:
        print_id_error("ERROR: pcifn id \"%s\" in command is incorrect\n", arg_or_empty(argv, QMX_ARG_ID));
        break;
    case E_CLI_HELP:
    case E_CLI_LIST_ERR:
        // The handler has said all there is to say.
        break;
    case E_CLI_INCORRECT_STRING:
        fprintf(stderr, "ERROR: Please check the string \"%s\"\n", arg_or_empty(argv, QMX_ARG_1));
        break;
    case E_CLI_NO_FC_INFO:
        print_id_error(
            "ERROR: Could not find Storage functionality on the port (or adapter) \"%s\"\n",
            arg_or_empty(argv, QMX_ARG_ID));
        break;
    case E_CLI_NO_ETH_INFO:
        print_id_error(
            "ERROR: Could not find Ethernet functionality on the port (or adapter) \"%s\"\n",
            arg_or_empty(argv, QMX_ARG_ID));
        break;
    case E_CLI_INVALID_INTERVAL:
        fprintf(stderr, "ERROR: Invalid interval value\n");
        break;
    case E_CLI_BAD_CARD_TYPE:
        fprintf(stderr, "ERROR: Card model is incorrect\n");
        break;
    case E_CLI_INCORRECT_CAPABILITY:
        fprintf(stderr, "ERROR: Card capabilities mask is");
        fprintf(stderr, " incorrect\n");
        break;
    case E_CLI_BAD_NPORTS:
        fprintf(stderr, "ERROR: Port count is incorrect\n");
        break;
    case E_CLI_INVALID_LUN:
        fprintf(stderr, "ERROR: LUN Number out of range\n");
        break;
    case E_CLI_PORT0_ABSENT:
        if (bNoAd)
            fputs(qmx_no_adapter_msg, stderr);
        else
            fprintf(stderr,
                    "ERROR: Please load driver on first pci function of port 0 of the "
                    "adapter.\n");
        break;
    case E_CLI_CLASS_NOT_SUPPORTED:
        fprintf(stderr, "ERROR: \"%s\" Command class not supported\n\n", arg_or_empty(argv, QMX_ARG_CLASS));
        break;
    case E_CLI_INCORRECT_MAC_OPTION:
        fprintf(stderr, "ERROR: MAC option is not valid for HBA mode\n");
        break;
    default:
        // E_CLI_CT_NO_INT and anything unknown.
        fprintf(stderr, "ERROR: %s\n", kvol_status_to_string(KVO_STATUS_MAX_VAL));
        break;
    }
}

void qmx_print_help(int extended) {
    printf("\nAvailable command options are:");
    for (int group = COMMON; group < TYPE_MAX; ++group) {
        printf("\n\n%s\n", qmx_cmd_type_str[group]);
        int shown = 0;
        for (int i = 0; !is_sentinel(qmx_class_desc[i]); ++i) {
            const qmx_cmd_class_desc_t& c = qmx_class_desc[i];
            if (c.cmd_type != group || !(c.os & E_LINUX)) continue;
            if (!extended && (c.os & E_HIDDEN)) continue;
            if (shown > 0 && shown % 6 == 0) printf("\n");
            printf("%-9s", c.name);
            ++shown;
        }
    }
    printf("\n\n");
}

void qmx_print_version() {
    printf("\nTorvane CLI utility\n");
    printf("Version:%s\n\n", qmx_get_version());
}

int qmx_internal_command(const char* word) {
    if (!word) return 0;
    if (strcmp(word, "--help") == 0) {
        qmx_print_help(0);
        return 1;
    }
    if (strcmp(word, "--ehelp") == 0) {
        qmx_print_help(1);
        return 1;
    }
    if (strcmp(word, "-v") == 0 || strcmp(word, "--version") == 0) {
        qmx_print_version();
        return 1;
    }
    return 0;
}

// Allocation failure anywhere below is reported once, here, as the library's out-of-memory
// status. (The manual page generator links this unit for its messages, without the entry.)
#ifndef QMX_NO_MAIN
int main(int argc, char** argv) {
    try {
        return qmx_run(argc, argv);
    } catch (const std::bad_alloc&) {
        if (lib_up) kvol_adapter_free();
        fprintf(stderr, "ERROR: %s\n", kvol_status_to_string(KVO_STATUS_ENOMEM));
        if (lib_up) kvol_libexit();
        return KVO_STATUS_ENOMEM;
    }
}
#endif
