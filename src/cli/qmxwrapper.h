#pragma once
// Identifier lookups and the value parsers and printers shared by the handlers.
#include <cstdint>

#include "qmx.h"

// The numeric adapter/port[/pcifn] form.
struct qmx_pcifn_t {
    int adapter;   // 1-based; 0 invalid
    int port;      // -1 invalid or absent
    int pcifn_id;  // -1 absent
};

enum port_id_type_t {
    e_id_unknown = 0,
    e_id_adapter_port = 1,
    e_id_adapter_port_pfn = 2,
    e_id_wwn = 3,
    e_id_hwpath = 4,
    e_id_range = 5,
    e_id_name = 6,
};

// The driver side an identifier must reach (IOC types).
enum qmx_side_t { QMX_SIDE_FC = KVO_IOC_TYPE_FC, QMX_SIDE_ETH = KVO_IOC_TYPE_LL };

// Three return conventions, fixed by the names these implement:
//  - identifier lookups return a result code: 0, or the e_cli_error code that names what is
//    wrong with the word (they never print);
//  - validators and parsers return 1 when the word is accepted and 0 when it is refused
//    (qmx_parse_vlan_id returns the value or -1);
//  - lookups that return a reference return null when there is none.

// ---- Identifier resolution ----
// The adapter named by 1-based index, serial number, name or hardware path; null when none.
kvol_adapter_t* qmx_get_adapter_id(const char* word);
// Any port form (adapter/port[/pcifn], WWN, hardware path, range, name) on that side; 0 or a
// code. *form tells which form the word was.
int qmx_get_port_id_any(const char* word, qmx_side_t side, qmx_id_t* out, port_id_type_t* form);
// A port word on that side; 0 or a code.
int qmx_get_port_id(const char* word, qmx_side_t side, qmx_id_t* out);
// A port word that does not name a PCI function by number; 0 or a code.
int qmx_get_port_id_strict(const char* word, qmx_side_t side, qmx_id_t* out);
// A PCI function word (adapter/port/pcifn, WWN, hardware path or range); 0 or a code.
int qmx_get_pcifn_id_strict(const char* word, qmx_side_t side, qmx_id_t* out);
// The adapter's control function plus the port and PCI function the word names; 0 or a code.
int qmx_get_first_ioc(const char* word, kvol_t** out, int* port, int* pfn, int pcifn_mode);
// 1 when the word has the adapter/port[/pcifn] shape (out-of-range numbers leave adapter 0 or
// port -1 for the caller to reject), else 0. Tokenises the word.
int qmx_get_adapter_port_id(char* word, qmx_pcifn_t* out, int count_mode);
// The IOC with that WWN, hardware path or name on that side; 0 or a code (*out null then).
int qmx_get_ioc_by_wwn(const char* word, qmx_side_t side, kvol_t** out);
int qmx_get_ioc_by_hwpath(const char* word, qmx_side_t side, kvol_t** out);
int qmx_get_ioc_by_portname(const char* word, qmx_side_t side, kvol_t** out);
// The adapter with that 1-based index; null when out of range.
kvol_adapter_t* qmx_get_adapter_by_id(int index);
// The adapter's first IOC in port order; null when the adapter or any IOC is missing.
kvol_t* qmx_get_ioc_by_adapter_id(int index);

// ---- Value parsers ----
// 1 and the eight bytes of "xx:xx:xx:xx:xx:xx:xx:xx"; 0 with the output untouched.
int qmx_get_port_wwn(const char* word, wwn_t* wwn);
// 1 and the bytes of a 17-character MAC (at most 6 written); 0. Tokenises the word.
int qmx_get_mac_number(char* word, uint8_t* mac);
// 1 and the speed of "1", "2", "4", "8", "16", "10" or "auto"; 0.
int qmx_set_speed(const char* word, uint32_t* speed);
// 1 and the topology of "p2p" or "loop"; 0.
int qmx_set_topology(const char* word, uint32_t* topology);
// The VLAN id 0..4094, or -1 (an empty word reads as 0).
int16_t qmx_parse_vlan_id(const char* word);
// 1 for a name of 1 to 15 characters, a letter then letters, digits, '-' or '_'; 0.
int qmx_verify_name(const char* word);
// 1 for 1 to 8 hex digits; 0.
int qmx_verify_pattern(const char* word);
// 1 for one or more decimal digits; 0.
int qmx_verify_num(const char* word);
// 1 for a hex digit; 0.
int ishex(int c);
// 1 for one or more characters, each a hex digit or '-'; 0.
int qmx_verify_lun(const char* word);
// The word's characters folded as decimal digits, unchecked (callers validate first).
uint64_t qmx_str2longlong(const char* word);
uint64_t qmx_str2lun(const char* word);
// Writes the eight bytes of 16 hex digits into lun (bytes the word lacks are zero).
void qmx_convert_string_to_lun(const char* word, uint8_t* lun);
// 0 after reading every "-l <wwn>" pair from argv[start] on (the last wins);
// E_CLI_INCORRECT_CMD or E_CLI_BAD_WWN.
int qmx_fill_vfid_lpwwn(char** argv, int argc, int start, const char* ignored, wwn_t* wwn);
// 0 and the adapter, port and PCI function of the Ethernet interface; 1 when none has it.
int qmx_get_port_num(const char* eth_name, int* adapter, int* port, int* pcifn);
// 1 when the path exists; 0.
int qmx_test_file_exists(const char* path);
// 0 and copies of the n words from the first argument on; E_CLI_INCORRECT_ARG for a
// negative n, E_CLI_SYSTEM_BUSY when memory runs out.
int create_args(char** argv, char*** out, int n);
// Releases what create_args made.
void qmx_free_args(char** args, int n);

// ---- Printers ----
// Writes the WWN's text into buf (at least 24 bytes) and returns buf.
char* qmx_wwn2str(char* buf, wwn_t wwn);
// Each prints its value on standard output, without a line end.
void qmx_print_pwwn(wwn_t wwn);
void qmx_print_mac(const uint8_t* mac);
void qmx_print_lun(lun_t lun);
// Writes the LUN's text into buf, bounded by size.
void qmx_convert_lun_to_string(lun_t lun, char* buf, size_t size);
// Prints n '-' and a line end.
void qmx_print_header_line(uint8_t n);
// Prints "hh:mm:ss", or "D days, hh:mm:ss" from one day on.
void qmx_print_duration(uint32_t seconds);
