// The one printer of statistics records, driven by their tables.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "kvol_stats.h"

namespace {

// A union arm is printed when its table's name contains the filter.
bool kvol_stats_arm_selected(const kvol_stats_t* arm, const char* filter) {
    if (arm == nullptr) return false;
    std::string_view name(arm->struct_name, strnlen(arm->struct_name, sizeof arm->struct_name));
    return name.find(filter) != std::string_view::npos;
}

// The counter at byte offset at of the record, as the driver stored it (host order).
template <class T>
T kvol_stats_value(const void* record, size_t at) {
    T value;
    memcpy(&value, static_cast<const unsigned char*>(record) + at, sizeof value);
    return value;
}

}  // namespace

void kvol_print_stats(const kvol_stats_t* table, const void* record, size_t base,
                      const char* filter) {
    if (table == nullptr || record == nullptr || table->desc == nullptr) return;
    for (int32_t i = 0; i < table->count; i++) {
        const kvol_stats_desc_t& row = table->desc[i];
        if (filter != nullptr && row.parent_type == KVOL_UNION && row.type == KVOL_STRUCT &&
            !kvol_stats_arm_selected(row.kvol_stats, filter)) {
            continue;
        }
        size_t at = base + row.offset;
        switch (row.type) {
        case KVOL_UINT16:
            printf("\t%s : %hu\n", row.desc, kvol_stats_value<uint16_t>(record, at));
            break;
        case KVOL_UINT32:
            printf("\t%s : %u\n", row.desc, kvol_stats_value<uint32_t>(record, at));
            break;
        case KVOL_UINT64:
            printf("\t%s : %llu\n", row.desc,
                   static_cast<unsigned long long>(kvol_stats_value<uint64_t>(record, at)));
            break;
        case KVOL_STRUCT:
        case KVOL_UNION:
            // Headings are the caller's: the nested row's own name is not printed.
            kvol_print_stats(row.kvol_stats, record, at, filter);
            break;
        default:
            break;  // kinds this printer does not know
        }
    }
}
