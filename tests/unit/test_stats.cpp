// Statistics tables against their records, and the printer that walks them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kvol.h"
#include "unit_util.h"

namespace {

// Every table with the size of the record it describes.
struct described_t {
    const kvol_stats_t* table;
    size_t size;
};
#define REC(rec) {&kvol_##rec, sizeof(rec##_t)}
const described_t kRecords[] = {
    REC(kvo_fw_ioc_stats),        REC(kvo_ioc_drv_stats),         REC(kvo_ioc_stats),
    REC(kvo_port_fc_stats),       REC(kvo_port_eth_stats),        REC(kvo_port_stats),
    REC(kvo_cee_stats),           REC(tqed_ethport_stats),        REC(tqe_stats_txf),
    REC(tqe_stats_rxf),           REC(tqe_stats_fc_tx),           REC(tqe_stats_fc_rx),
    REC(cna_stats_rad),           REC(cna_stats_bpc_tx),          REC(cna_stats_bpc_rx),
    REC(cna_stats_mac_tx),        REC(cna_stats_mac_rx),          REC(tqe_stats),
    REC(kvo_ethport_stats),       REC(kvo_vf_stats),              REC(kvo_auth_proto_stats),
    REC(kvo_auth_stats),          REC(kvo_lport_stats),           REC(kvo_vport_stats),
    REC(kvo_rport_hal_stats),     REC(kvo_rport_stats),           REC(kvo_rport_remote_link_stats),
    REC(kvo_itnim_stats),         REC(kvo_iprp_stats),            REC(kvo_ipfc_stats),
    REC(kvo_fw_ioim_stats),       REC(kvo_fw_tio_stats),          REC(kvo_fw_io_stats),
    REC(kvo_fw_port_fpg_stats),   REC(kvo_fw_lpsm_stats),         REC(kvo_fw_port_lksm_stats),
    REC(kvo_fw_port_snsm_stats),  REC(kvo_fw_port_physm_stats),   REC(kvo_fw_fip_stats),
    REC(kvo_fw_lps_stats),        REC(kvo_fw_fcoe_stats),         REC(kvo_fw_fcoe_port_stats),
    REC(kvo_fw_fc_uport_stats),   REC(kvo_fw_fc_port_stats),      REC(kvo_fw_port_stats),
    REC(kvo_fw_fcxchg_stats),     REC(kvo_fw_trunk_stats),        REC(kvo_fw_aport_stats),
    REC(kvo_fw_iocfc_stats),      REC(kvo_fw_eth_sndrcv_stats),   REC(kvo_fw_rds_stats),
    REC(kvo_fw_mac_mod_stats),    REC(kvo_fw_ct_mod_stats),       REC(kvo_fw_stats),
    REC(kvo_qos_stats),           REC(kvo_fcoe_stats),            REC(kvo_fcport_stats),
    REC(kvo_fcpim_del_itn_stats), REC(kvo_itnim_iostats),         REC(kvo_phy_stats),
    REC(kvo_vnic_stats_bpc),      REC(kvo_vnic_stats_rad),        REC(kvo_vnic_stats_txq),
    REC(kvo_vnic_stats_txf),      REC(kvo_vnic_stats_rxq),        REC(kvo_vnic_stats_rxp),
    REC(kvo_vnic_stats_rxf),      REC(kvo_vnic_drvstats),         REC(kvo_vnic_stats),
};
#undef REC

std::string name_of(const kvol_stats_t* t) {
    return std::string(t->struct_name, strnlen(t->struct_name, sizeof t->struct_name));
}

size_t record_size(const kvol_stats_t* t) {
    for (const auto& r : kRecords) {
        if (r.table == t) return r.size;
    }
    return 0;
}

bool is_counter(const kvol_stats_desc_t& row) {
    return row.type == KVOL_UINT16 || row.type == KVOL_UINT32 || row.type == KVOL_UINT64;
}

size_t width_of(const kvol_stats_desc_t& row) {
    switch (row.type) {
    case KVOL_UINT16: return 2;
    case KVOL_UINT32: return 4;
    case KVOL_UINT64: return 8;
    default: return 0;
    }
}

bool is_arm(const kvol_stats_desc_t& row) {
    return row.parent_type == KVOL_UNION && row.type == KVOL_STRUCT;
}

// Counters the printer reaches from t when no filter is given.
int counters_below(const kvol_stats_t* t) {
    int n = 0;
    for (int i = 0; i < t->count; i++) {
        const auto& row = t->desc[i];
        n += is_counter(row) ? 1 : (row.kvol_stats != nullptr ? counters_below(row.kvol_stats) : 0);
    }
    return n;
}

// Rows follow the record's fields: each starts at or after the end of the one before, except
// that the arms of one union share their offset.
TEST(StatsTables, RowsFollowFieldOrderWithoutOverlap) {
    for (const auto& r : kRecords) {
        size_t end = 0;
        size_t arms_at = 0;
        bool in_union = false;
        for (int i = 0; i < r.table->count; i++) {
            const auto& row = r.table->desc[i];
            size_t size = is_counter(row) ? width_of(row) : record_size(row.kvol_stats);
            std::string where = name_of(r.table) + " / " + row.desc;
            ASSERT_NE(size, 0u) << where << ": kind unknown or nested table not listed above";
            if (is_arm(row) && in_union) {
                EXPECT_EQ(row.offset, arms_at) << where;
                end = std::max(end, row.offset + size);
                continue;
            }
            EXPECT_GE(row.offset, end) << where;
            in_union = is_arm(row);
            arms_at = row.offset;
            end = row.offset + size;
        }
    }
}

// Names are looked up by text (the throughput total finds its two counters so): a repeat
// within one table would hide a counter.
TEST(StatsTables, RowNamesAreTerminatedAndUniqueWithinTheirTable) {
    for (const auto& r : kRecords) {
        std::set<std::string> seen;
        for (int i = 0; i < r.table->count; i++) {
            const auto& row = r.table->desc[i];
            size_t len = strnlen(row.desc, sizeof row.desc);
            ASSERT_LT(len, sizeof row.desc) << name_of(r.table) << " row " << i;
            EXPECT_GT(len, 0u) << name_of(r.table) << " row " << i;
            EXPECT_TRUE(seen.insert(row.desc).second) << name_of(r.table) << " / " << row.desc;
        }
    }
}

// Each row's id is computed from its table's number (kvol_stats_nvpair.cpp); what the build
// cannot see is two tables given one number, or a number moved.
TEST(StatsTables, TableNumbersAreUniqueAndStable) {
    std::map<int, std::string> numbers;
    for (const auto& r : kRecords) {
        const auto* first = std::find_if(r.table->desc, r.table->desc + r.table->count, is_counter);
        if (first == r.table->desc + r.table->count) continue;  // a table of nested records only
        auto [it, fresh] = numbers.emplace(first->id / 100, name_of(r.table));
        EXPECT_TRUE(fresh) << name_of(r.table) << " shares number " << first->id / 100 << " with "
                           << it->second;
    }
    EXPECT_EQ(kvol_kvo_ioc_drv_stats.desc[0].id, 1201);
    EXPECT_EQ(kvol_kvo_ioc_drv_stats.desc[10].id, 1211);
    EXPECT_EQ(kvol_kvo_itnim_iostats.desc[0].id, 10201);
}

// Each union filter the command handlers pass picks at least one arm somewhere; the one that
// must print no arm picks none.
TEST(StatsTables, HandlerFiltersSelectUnionArms) {
    const struct {
        const char* filter;
        bool selects;
    } cases[] = {
        {"fc_stats", true}, {"eth_stats", true}, {"fcoe", true},          {"fcoe_port", true},
        {"fc_uport", true}, {"qos", true},       {"SCSI stats\n", false},
    };
    for (const auto& c : cases) {
        int arms = 0;
        for (const auto& r : kRecords) {
            for (int i = 0; i < r.table->count; i++) {
                const auto& row = r.table->desc[i];
                if (is_arm(row) && name_of(row.kvol_stats).find(c.filter) != std::string::npos) {
                    arms++;
                }
            }
        }
        EXPECT_EQ(arms > 0, c.selects) << c.filter << ": " << arms << " arms";
    }
}

// ---- The printer on tables made for the case ----------------------------------------------------

kvol_stats_desc_t row(kvol_field_type parent, kvol_field_type type, const char* text,
                      size_t offset, const kvol_stats_t* nested = nullptr) {
    kvol_stats_desc_t r{parent, type, {}, offset, 0, nested};
    strncpy(r.desc, text, sizeof r.desc - 1);
    return r;
}

kvol_stats_desc_t ctr(kvol_field_type type, const char* text, size_t offset) {
    return row(KVOL_STRUCT, type, text, offset);
}

// A table together with the rows it points at.
struct Table {
    Table(const char* name, std::vector<kvol_stats_desc_t> r) : rows(std::move(r)) {
        t = {static_cast<int32_t>(rows.size()), {}, rows.data()};
        strncpy(t.struct_name, name, sizeof t.struct_name - 1);
    }
    Table(const Table&) = delete;
    std::vector<kvol_stats_desc_t> rows;
    kvol_stats_t t;
};

std::string printed(const kvol_stats_t* t, const void* rec, size_t base = 0,
                    const char* filter = nullptr) {
    return unit::stdout_of([&] { kvol_print_stats(t, rec, base, filter); });
}

template <class T>
void put(std::vector<unsigned char>& rec, size_t at, T value) {
    memcpy(rec.data() + at, &value, sizeof value);
}

TEST(StatsPrint, NothingWithoutTableRecordOrRows) {
    const Table one("one_t", {ctr(KVOL_UINT32, "Count", 0)});
    const kvol_stats_t empty{0, "empty_t", nullptr};
    const kvol_stats_t empty_with_rows{0, "empty_t", one.rows.data()};
    const uint32_t rec = 7;
    EXPECT_EQ(printed(nullptr, &rec), "");
    EXPECT_EQ(printed(&one.t, nullptr, 0, "fc_stats"), "");
    EXPECT_EQ(printed(&empty, &rec), "");
    EXPECT_EQ(printed(&empty_with_rows, &rec), "");
}

// Each width reads exactly its bytes, unsigned; kinds 5 and above print nothing.
TEST(StatsPrint, CountersByWidthAndUnknownKindsSkipped) {
    const Table widths("widths_t", {
        ctr(KVOL_UINT16, "Short", 0),
        ctr(static_cast<kvol_field_type>(5), "Kind five", 0),
        ctr(KVOL_UINT32, "Word", 4),
        ctr(static_cast<kvol_field_type>(9), "Kind nine", 4),
        ctr(KVOL_UINT64, "Long", 8),
    });
    const struct {
        uint16_t s, next;
        uint32_t w;
        uint64_t l;
        const char* out;
    } cases[] = {
        {0x1234, 0xABCD, 0x89ABCDEF, 0x0123456789ABCDEFull,
         "\tShort : 4660\n\tWord : 2309737967\n\tLong : 81985529216486895\n"},
        {0xFFFF, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFFull,
         "\tShort : 65535\n\tWord : 4294967295\n\tLong : 18446744073709551615\n"},
    };
    for (const auto& c : cases) {
        std::vector<unsigned char> rec(16);
        put(rec, 0, c.s);
        put(rec, 2, c.next);
        put(rec, 4, c.w);
        put(rec, 8, c.l);
        EXPECT_EQ(printed(&widths.t, rec.data()), c.out);
    }
}

// A counter two levels down is read at the sum of the offsets on its path plus the base; the
// nested rows' own names are not printed.
TEST(StatsPrint, NestedOffsetsAddUp) {
    const Table inner("inner_t", {ctr(KVOL_UINT32, "Deep", 4)});
    const Table mid("mid_t", {
        ctr(KVOL_UINT16, "Mid", 0),
        row(KVOL_STRUCT, KVOL_STRUCT, "inner heading", 8, &inner.t),
    });
    const Table outer("outer_t", {
        ctr(KVOL_UINT64, "Top", 0),
        row(KVOL_STRUCT, KVOL_STRUCT, "mid heading", 16, &mid.t),
    });

    std::vector<unsigned char> rec(64);
    put<uint64_t>(rec, 0, 7);
    put<uint16_t>(rec, 16, 5);
    put<uint32_t>(rec, 28, 57005);   // 16 + 8 + 4
    put<uint64_t>(rec, 32, 11);
    put<uint16_t>(rec, 48, 13);
    put<uint32_t>(rec, 60, 17);      // 32 + 16 + 8 + 4

    const struct {
        size_t base;
        const char* out;
    } cases[] = {
        {0, "\tTop : 7\n\tMid : 5\n\tDeep : 57005\n"},
        {32, "\tTop : 11\n\tMid : 13\n\tDeep : 17\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(printed(&outer.t, rec.data(), c.base), c.out) << "base " << c.base;
    }
}

// Union arms print when their table's name contains the filter (case-sensitive), all of them
// without a filter; ordinary rows and nested records print whatever the filter, and the filter
// reaches arms further down.
TEST(StatsPrint, UnionArmsChosenByTableName) {
    const Table fc("t_fc_stats_t", {ctr(KVOL_UINT32, "Fc", 0)});
    const Table eth("t_eth_stats_t", {ctr(KVOL_UINT32, "Eth", 0)});
    const Table plain("t_plain_t", {ctr(KVOL_UINT32, "Plain", 0)});
    const Table choice("t_choice_t", {
        row(KVOL_UNION, KVOL_STRUCT, "fc", 0, &fc.t),
        row(KVOL_UNION, KVOL_STRUCT, "eth", 0, &eth.t),
    });
    const Table holder("t_holder_t", {
        ctr(KVOL_UINT32, "Count", 0),
        row(KVOL_UNION, KVOL_STRUCT, "fc", 8, &fc.t),
        row(KVOL_UNION, KVOL_STRUCT, "eth", 8, &eth.t),
        row(KVOL_STRUCT, KVOL_STRUCT, "plain", 12, &plain.t),
        row(KVOL_STRUCT, KVOL_UNION, "choice", 16, &choice.t),
    });

    std::vector<unsigned char> rec(20);
    const std::pair<size_t, uint32_t> words[] = {{0, 1}, {8, 2}, {12, 3}, {16, 4}};
    for (auto [at, v] : words) put(rec, at, v);

    const char* all = "\tCount : 1\n\tFc : 2\n\tEth : 2\n\tPlain : 3\n\tFc : 4\n\tEth : 4\n";
    const struct {
        const char* filter;
        const char* out;
    } cases[] = {
        {nullptr, all},
        {"stats", all},
        {"fc_stats", "\tCount : 1\n\tFc : 2\n\tPlain : 3\n\tFc : 4\n"},
        {"eth_stats", "\tCount : 1\n\tEth : 2\n\tPlain : 3\n\tEth : 4\n"},
        {"FC_STATS", "\tCount : 1\n\tPlain : 3\n"},
        {"SCSI stats\n", "\tCount : 1\n\tPlain : 3\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(printed(&holder.t, rec.data(), 0, c.filter), c.out)
            << (c.filter ? c.filter : "(none)");
    }
}

// ---- The printer on the product's tables --------------------------------------------------------

std::vector<std::string> lines_of(const std::string& out) {
    std::vector<std::string> lines;
    size_t from = 0;
    for (size_t nl; (nl = out.find('\n', from)) != std::string::npos; from = nl + 1) {
        lines.push_back(out.substr(from, nl - from));
    }
    return lines;
}

// A record of the product's kind filled with numbered words, printed.
template <class T>
std::vector<std::string> numbered_print(const kvol_stats_t* t, uint32_t first) {
    T rec;
    uint32_t words[sizeof rec / 4];
    for (size_t i = 0; i < std::size(words); i++) words[i] = first + static_cast<uint32_t>(i);
    memcpy(&rec, words, sizeof rec);
    return lines_of(printed(t, &rec));
}

// Each line reads its own word in record order, the leading ones under their names. The IOC
// record has the driver's eleven counters, then the firmware's from byte 48: the word between
// is never printed.
TEST(StatsPrint, ProductTablesNameTheirCountersAndReadEachWordInOrder) {
    const struct {
        const char* what;
        std::vector<std::string> lines;
        uint32_t first;
        size_t count, gap_at;
        std::vector<const char*> names;
    } cases[] = {
        {"itnim io", numbered_print<kvo_itnim_iostats_t>(&kvol_kvo_itnim_iostats, 1000), 1000, 68,
         SIZE_MAX,
         {"Total IO", "Data in-bound requests", "Data out-bound requests", "Total IO Completions",
          "Write data transferred in bytes", "Read data transferred in bytes",
          "Slowpath IO completions", "IO underrun", "IO overrun", "IO Request-Q wait",
          "IO Request-Q wait done", "No free IO tag", "IO timeouts",
          "IO failure due to target offline", "IO aborted"}},
        {"ioc", numbered_print<kvo_ioc_stats_t>(&kvol_kvo_ioc_stats, 100), 100, 17, 11,
         {"Mailbox interrupts", "Enable events", "Disable events", "Heartbeat failures",
          "Firmware boots", "Stats timeouts", "Heart-beat count", "Disable requests",
          "Enable requests", "Disable replies", "Enable replies"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(c.lines.size(), c.count);
        for (size_t i = 0; i < c.count; i++) {
            std::string n = std::to_string(c.first + i + (i >= c.gap_at ? 1 : 0));
            if (i < c.names.size())
                EXPECT_EQ(c.lines[i], "\t" + std::string(c.names[i]) + " : " + n);
            else
                EXPECT_EQ(c.lines[i].substr(c.lines[i].rfind(' ') + 1), n) << c.lines[i];
        }
    }
}

// Every table prints each of its counters once from a record of exactly its size (the
// sanitizer build sees any read past the end).
TEST(StatsPrint, EveryTablePrintsEachCounterFromItsRecordAlone) {
    for (const auto& r : kRecords) {
        std::vector<unsigned char> rec(r.size, 0x5A);
        auto lines = lines_of(printed(r.table, rec.data()));
        EXPECT_EQ(lines.size(), static_cast<size_t>(counters_below(r.table))) << name_of(r.table);
    }
}

}  // namespace
