#pragma once
// The front end's shared types: result codes, the command tables, the resolved identifier.
#include "kvol.h"

enum e_cli_error {
    E_CLI_NO_ERROR = 0,
    E_CLI_TOO_FEW_ARGS = 4001,
    E_CLI_CMD_NOT_SUPPORTED = 4002,
    E_CLI_SYSTEM_BUSY = 4003,
    E_CLI_BAD_ARG = 4004,
    E_CLI_OPEN_ADAPTER_FAILED = 4005,
    E_CLI_INCORRECT_ARG = 4006,
    E_CLI_INCORRECT_CMD = 4007,
    E_CLI_BAD_WWN = 4008,
    E_CLI_BAD_MAC = 4009,
    E_CLI_BAD_LUN = 4010,
    E_CLI_INCORRECT_PORT_ID = 4011,
    E_CLI_INCORRECT_ADAPTER_ID = 4012,
    E_CLI_INCORRECT_PCIFN_ID = 4013,
    E_CLI_HELP = 4014,
    E_CLI_INCORRECT_STRING = 4015,
    E_CLI_CT_NO_INT = 4016,
    E_CLI_NO_FC_INFO = 4017,
    E_CLI_NO_ETH_INFO = 4018,
    E_CLI_INVALID_INTERVAL = 4019,
    E_CLI_BAD_CARD_TYPE = 4020,
    E_CLI_INCORRECT_CAPABILITY = 4021,
    E_CLI_BAD_NPORTS = 4022,
    E_CLI_INVALID_LUN = 4023,
    E_CLI_PORT0_ABSENT = 4024,
    E_CLI_CLASS_NOT_SUPPORTED = 4025,
    E_CLI_INCORRECT_MAC_OPTION = 4026,
    E_CLI_LIST_ERR = 4027,
};

enum qmx_cmd_os_t {
    E_INVALID = 0,
    E_WINDOWS = 1,
    E_SOLARIS = 2,
    E_VMWARE = 4,
    E_LINUX = 8,
    E_ALL = 15,
    E_HIDDEN = 16,
};

enum qmx_cmd_type_t { COMMON = 0, CNA = 1, FC = 2, ETH = 3, TYPE_MAX = 4 };

enum qmx_id_desc_t {
    PORT_ID = 0,
    ADAPTER_ID = 1,
    PCIFN_ID = 2,
    TEAM_ID = 3,
    PORT_FIRST_IOC = 4,
    PCIFN_FIRST_IOC = 5,
    PCIFN_ID_STRICT = 6,
    ID_NONE = 7,
};

enum qmx_drv_path_t { PATH_FC = 0, PATH_ETH = 1, PATH_ANY = 2, PATH_ANY_OPER = 3 };

struct kvol_port_first_ioc_s {
    kvol_t* kvol;
    int port;
};
typedef kvol_port_first_ioc_s qmx_port_first_ioc_t;

struct kvol_pfn_first_ioc_s {
    kvol_t* kvol;
    int port;
    int pfn;
    bool configured;
    bool active;
};
typedef kvol_pfn_first_ioc_s qmx_pfn_first_ioc_t;

// The identifier resolved for a handler. For a range form, `kvol` is followed by the
// reference to the range's last IOC (range_last). For an adapter, `adapter` is followed by its
// control function (ad_ioc: the first IOC of port 0, null when it has none), which every
// adapter command addresses.
union qmx_id_u {
    struct {
        kvol_t* kvol;
        kvol_t* range_last;
    };
    struct {
        kvol_adapter_t* adapter;
        kvol_t* ad_ioc;
    };
    kvol_port_t* port;
    qmx_port_first_ioc_t port_ioc;
    qmx_pfn_first_ioc_t pfn_ioc;
};
typedef qmx_id_u qmx_id_t;

// Positions of the words of a command line in the vector a handler gets: the program, the
// class word, the command word, the identifier, then the command's own arguments.
enum qmx_arg_pos {
    QMX_ARG_CLASS = 1,
    QMX_ARG_CMD = 2,
    QMX_ARG_ID = 3,
    QMX_ARG_1 = 4,  // the first argument after the identifier
    QMX_ARG_2 = 5,
};
// True when the command line has a word at position pos.
constexpr bool qmx_has_arg(int argc, int pos) { return argc > pos; }

// Returns 0, a kvo_status_t (1..276) or an e_cli_error code; see print_error_string.
typedef int (*qmx_cmd_handler_t)(char** argv, int argc, qmx_id_t* id);
typedef void (*qmx_cmd_usage_t)(int extended);

struct cmd_desc_s {
    const char* name;
    int min_args;
    int max_args;
    qmx_id_desc_t id_desc;
    qmx_drv_path_t drv_path;
    qmx_cmd_handler_t handler;
};
typedef cmd_desc_s qmx_cmd_desc_t;

struct cmd_class_desc_s {
    const char* name;
    int num_cmd;
    qmx_cmd_type_t cmd_type;
    int os;  // qmx_cmd_os_t bits
    const qmx_cmd_desc_t* cmds;
    qmx_cmd_usage_t usage;
};
typedef cmd_class_desc_s qmx_cmd_class_desc_t;

// qmxtable: the class table, closed by the entry named "none", and the number of classes
// before it.
extern const qmx_cmd_class_desc_t qmx_class_desc[];
extern const int qmx_class_count;

// qmxmain
extern int qmx_class;  // table index of the class being run
extern bool bNoAd;     // the last scan found no adapter
int qmx_cmdline_parser(int argc, char** argv);
int qmx_main(int argc, char** argv);
int qmx_get_class_id(const char* name, int* index);
int qmx_get_cmd_id(const char* name, int class_index, int* index);
int qmx_validate_arg_count(int class_index, int cmd_index, int count);
int qmx_get_id(char* word, int class_index, int cmd_index, qmx_id_t* id);
void qmx_print_help(int extended);
int qmx_internal_command(const char* word);
void qmx_print_version();
void print_error_string(int code, char** argv);

// qmxversion
const char* qmx_get_version();

// The shell's token list.
struct l_node {
    char* token;
    l_node* next;
};
typedef l_node lnode;
void qmx_list_append(l_node** list, const char* token);
void qmx_list_free(l_node* list);
