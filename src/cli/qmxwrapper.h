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

// ---- Identifier resolution ----
kvol_adapter_t* qmx_get_adapter_id(const char* word);
int qmx_get_port_id_any(const char* word, qmx_side_t side, qmx_id_t* out, port_id_type_t* form);
int qmx_get_port_id(const char* word, qmx_side_t side, qmx_id_t* out);
int qmx_get_port_id_strict(const char* word, qmx_side_t side, qmx_id_t* out);
int qmx_get_pcifn_id_strict(const char* word, qmx_side_t side, qmx_id_t* out);
int qmx_get_first_ioc(const char* word, kvol_t** out, int* port, int* pfn, int pcifn_mode);
int qmx_get_adapter_port_id(char* word, qmx_pcifn_t* out, int count_mode);
int qmx_get_ioc_by_wwn(const char* word, qmx_side_t side, kvol_t** out);
int qmx_get_ioc_by_hwpath(const char* word, qmx_side_t side, kvol_t** out);
int qmx_get_ioc_by_portname(const char* word, qmx_side_t side, kvol_t** out);
kvol_adapter_t* qmx_get_adapter_by_id(int index);
kvol_t* qmx_get_ioc_by_adapter_id(int index);

// ---- Value parsers ----
int qmx_get_port_wwn(const char* word, wwn_t* wwn);
int qmx_get_mac_number(char* word, uint8_t* mac);  // writes at most 6 bytes
int qmx_set_speed(const char* word, uint32_t* speed);
int qmx_set_topology(const char* word, uint32_t* topology);
int16_t qmx_parse_vlan_id(const char* word);
int qmx_verify_name(const char* word);
int qmx_verify_pattern(const char* word);
int qmx_verify_num(const char* word);
int ishex(int c);
int qmx_verify_lun(const char* word);
uint64_t qmx_str2longlong(const char* word);
uint64_t qmx_str2lun(const char* word);
void qmx_convert_string_to_lun(const char* word, uint8_t* lun);
int qmx_fill_vfid_lpwwn(char** argv, int argc, int start, const char* ignored, wwn_t* wwn);
int qmx_get_port_num(const char* eth_name, int* adapter, int* port, int* pcifn);
int qmx_test_file_exists(const char* path);
int create_args(char** argv, char*** out, int n);  // 0, or E_CLI_SYSTEM_BUSY
void qmx_free_args(char** args, int n);            // releases what create_args made

// ---- Printers ----
char* qmx_wwn2str(char* buf, wwn_t wwn);  // buf holds at least 24 bytes
void qmx_print_pwwn(wwn_t wwn);
void qmx_print_mac(const uint8_t* mac);
void qmx_print_lun(lun_t lun);
void qmx_convert_lun_to_string(lun_t lun, char* buf, size_t size);
void qmx_print_header_line(uint8_t n);
void qmx_print_duration(uint32_t seconds);
