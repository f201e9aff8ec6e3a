// The adapter tree over the IOC list: grouping into adapters and ports, handle bounds, lookups
// by index, word, WWN and PCI function, and the generic list operations.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kvol.h"
#include "kvol_ioc_priv.h"

namespace {

struct fn_desc {
    const char* hwpath;
    const char* adapter;
    kvo_ioc_type_e type;
    uint32_t port;
    wwn_t pwwn;
    const char* eth_name;
};

class Tree : public ::testing::Test {
protected:
    void TearDown() override { kvol_adapter_free(); }

    // Appends one IOC to the global list, as the scan does.
    kvol_t* add_ioc(const fn_desc& d) {
        kvol_t* rec = kvol_calloc<kvol_t>();
        rec->fd = rec->sg_fd = rec->ipfc_fd = -1;
        rec->id = n_;
        rec->instance = 10 + n_;
        rec->ioc_type = d.type;
        snprintf(rec->ioc_hwpath, sizeof(rec->ioc_hwpath), "%s", d.hwpath);
        snprintf(rec->adapter_hwpath, sizeof(rec->adapter_hwpath), "%s", d.adapter);
        snprintf(rec->serialnum, sizeof(rec->serialnum), "SN-%s", d.adapter);
        if (d.eth_name) snprintf(rec->eth_name, sizeof(rec->eth_name), "%s", d.eth_name);
        rec->pwwn = d.pwwn;
        rec->nwwn = d.pwwn ? d.pwwn + 0x1000000000000000 : 0;
        rec->factorypwwn = d.pwwn;
        kvol_ioc_list_push(rec);
        kvol_ioc_set_num(++n_);
        descs_.push_back(d);
        return rec;
    }

    // Groups every listed IOC into the tree, as the adapter scan does after its queries.
    void build() {
        for (int i = 0; i < n_; ++i) {
            kvol_t* h = kvol_adapter_open_ioc(i);
            ASSERT_NE(h, nullptr);
            kvo_ioc_attr_t attr{};
            attr.port_id = descs_[i].port;
            attr.pci_attr.pcifn = static_cast<uint32_t>(i % 8);
            attr.pci_attr.vendor_id = 0xE1F2;
            attr.pci_attr.device_id = 0x22;
            snprintf(attr.adapter_attr.model_descr, sizeof(attr.adapter_attr.model_descr),
                     "Model of %s", descs_[i].adapter);
            snprintf(attr.adapter_attr.adapter_type, sizeof(attr.adapter_attr.adapter_type),
                     "CNA");
            attr.adapter_attr.cna_capable = 1;
            kvo_ioc_info_t info{};
            snprintf(info.serialnum, sizeof(info.serialnum), "%s", h->serialnum);
            snprintf(info.name, sizeof(info.name), "name-%d", i);
            kvol_adapter_t* added = nullptr;
            ASSERT_EQ(kvol_adapter_tree_add(h, &attr, &info, &added), KVO_STATUS_OK);
        }
    }

    int n_ = 0;
    std::vector<fn_desc> descs_;
};

// The hardware paths along a chain of IOC records, blank-separated ("" for none).
std::string chain(const kvol_t* ioc) {
    std::string out;
    for (; ioc; ioc = ioc->next) out += (out.empty() ? "" : " ") + std::string(ioc->ioc_hwpath);
    return out;
}

// One record's hardware path, or "(none)".
std::string path(const kvol_t* ioc) { return ioc ? ioc->ioc_hwpath : "(none)"; }

constexpr wwn_t W0 = 0x1000000000000A00, W1 = 0x1000000000000A01, W2 = 0x1000000000000B00;

}  // namespace

TEST_F(Tree, OpenIocIsBoundedByTheCount) {
    EXPECT_EQ(kvol_adapter_open_ioc(0), nullptr);  // empty list
    add_ioc({"0000:03:00.0", "0000:03:00", KVO_IOC_TYPE_FC, 0, W0, nullptr});
    add_ioc({"0000:03:00.1", "0000:03:00", KVO_IOC_TYPE_FC, 1, W1, nullptr});
    add_ioc({"0000:04:00.0", "0000:04:00", KVO_IOC_TYPE_LL, 0, 0, "eth0"});
    EXPECT_EQ(kvol_adapter_open_ioc(-1), nullptr);
    EXPECT_EQ(kvol_adapter_open_ioc(3), nullptr);
    for (int i = 0; i < 3; ++i) {
        ASSERT_NE(kvol_adapter_open_ioc(i), nullptr);
        EXPECT_EQ(kvol_adapter_open_ioc(i)->id, i);
    }
    // IOCs that a failed driver scan left in the list but out of the count are not handed out.
    kvol_ioc_set_num(2);
    EXPECT_EQ(kvol_adapter_open_ioc(2), nullptr);
    EXPECT_NE(kvol_adapter_open_ioc(1), nullptr);
}

TEST_F(Tree, FunctionsOfOneCardFormOneAdapterWithItsPorts) {
    add_ioc({"0000:03:00.1", "0000:03:00", KVO_IOC_TYPE_FC, 1, W1, nullptr});
    add_ioc({"0000:04:00.0", "0000:04:00", KVO_IOC_TYPE_FCoE, 0, W2, nullptr});
    add_ioc({"0000:03:00.0", "0000:03:00", KVO_IOC_TYPE_FC, 0, W0, nullptr});
    add_ioc({"0000:04:00.2", "0000:04:00", KVO_IOC_TYPE_LL, 0, 0, "eth2"});
    add_ioc({"0000:04:00.4", "0000:04:00", KVO_IOC_TYPE_FCoE, 0, W2 + 4, nullptr});
    build();

    ASSERT_EQ(kvol_adapter_get_count(), 2);
    kvol_adapter_t* a1 = kvol_adapter_get_by_idx(1);
    kvol_adapter_t* a2 = kvol_adapter_get_by_idx(2);
    ASSERT_NE(a1, nullptr);
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ(kvol_adapter_get_by_idx(0), nullptr);
    EXPECT_EQ(kvol_adapter_get_by_idx(3), nullptr);
    // Numbered in order of their first function in the list.
    EXPECT_STREQ(kvol_adapter_get_hw_path(a1), "0000:03:00");
    EXPECT_STREQ(kvol_adapter_get_hw_path(a2), "0000:04:00");
    EXPECT_EQ(kvol_adapter_get_port_count(a1), 2);
    EXPECT_EQ(kvol_adapter_get_port_count(a2), 1);
    EXPECT_EQ(kvol_adapter_get_port_count(nullptr), -1);
    EXPECT_STREQ(kvol_adapter_get_serial_num(a1), "SN-0000:03:");  // cut to the field
    EXPECT_STREQ(kvol_adapter_get_model(a2), "Model of 0000:04:00");
    EXPECT_STREQ(kvol_adapter_get_type(a2), "CNA");
    EXPECT_STREQ(kvol_adapter_get_name(a1), "name-0");
    EXPECT_TRUE(a1->cna_capable);
    EXPECT_FALSE(a1->trunk_capable);

    // Port 1 came first and port 0 was added later; both are found by number.
    kvol_port_t* p0 = kvol_adapter_get_port(a1, 0);
    ASSERT_NE(p0, nullptr);
    ASSERT_NE(kvol_adapter_get_port(a1, 1), nullptr);
    EXPECT_EQ(kvol_adapter_get_port(a1, 2), nullptr);
    EXPECT_EQ(chain(kvol_port_get_first_fcioc(p0)), "0000:03:00.0");
    EXPECT_EQ(chain(kvol_port_get_first_fcioc(kvol_adapter_get_port(a1, 1))), "0000:03:00.1");
    EXPECT_EQ(path(kvol_adapter_get_first_ioc(a1)), "0000:03:00.0");
    EXPECT_EQ(p0->factorypwwn, W0);

    // A CNA port keeps its storage functions in list order and its Ethernet function apart.
    kvol_port_t* c0 = kvol_adapter_get_port(a2, 0);
    ASSERT_NE(c0, nullptr);
    EXPECT_EQ(c0->ioc_count, 3);
    EXPECT_EQ(chain(kvol_port_get_first_fcioc(c0)), "0000:04:00.0 0000:04:00.4");
    EXPECT_EQ(chain(kvol_port_get_first_ethioc(c0)), "0000:04:00.2");
    EXPECT_EQ(kvol_port_get_first_ioc(c0), kvol_port_get_first_fcioc(c0));

    // The records learnt their adapter, port and PCI identity.
    kvol_t* g3 = kvol_adapter_open_ioc(3);
    EXPECT_EQ(kvol_ioc_get_adapter_id(g3), 2);
    EXPECT_EQ(kvol_ioc_get_port_id(g3), 0);
    EXPECT_EQ(kvol_ioc_get_pcifn(g3), 3);
    EXPECT_EQ(g3->vendor_id, 0xE1F2);
    EXPECT_EQ(g3->device_id, 0x22);
    EXPECT_EQ(kvol_ioc_get_adapter_id(kvol_adapter_open_ioc(2)), 1);
}

TEST_F(Tree, LookupsByWordWwnAndFunction) {
    add_ioc({"0000:03:00.0", "0000:03:00", KVO_IOC_TYPE_FC, 0, W0, nullptr});
    add_ioc({"0000:03:00.1", "0000:03:00", KVO_IOC_TYPE_FC, 1, W1, nullptr});
    add_ioc({"0000:05:00.0", "0000:05:00", KVO_IOC_TYPE_LL, 0, 0, "eth0"});
    add_ioc({"0000:05:00.1", "0000:05:00", KVO_IOC_TYPE_LL, 0, 0, "eth1"});
    build();

    // By path, serial number or name; "name-1" joined adapter 1 and is not its name (0: none).
    const std::pair<const char*, int> words[] = {{"0000:05:00", 2}, {"SN-0000:03:", 1}, {"name-2", 2},
                                                 {"name-1", 0},     {"0000:05", 0},     {"", 0}};
    for (auto [w, idx] : words)
        EXPECT_EQ(kvol_adapter_get_by_str(w), idx ? kvol_adapter_get_by_idx(idx) : nullptr) << w;

    EXPECT_EQ(path(kvol_adapter_get_ioc_by_wwn(W1)), "0000:03:00.1");
    EXPECT_EQ(path(kvol_adapter_get_ioc_by_wwn(W0 + 0x1000000000000000)), "0000:03:00.0");
    EXPECT_EQ(kvol_adapter_get_ioc_by_wwn(0), nullptr);  // Ethernet functions are not searched

    kvol_t* by_path = kvol_adapter_get_ioc_by_str("0000:05:00.1");
    ASSERT_NE(by_path, nullptr);
    EXPECT_STREQ(by_path->eth_name, "eth1");
    EXPECT_EQ(kvol_adapter_get_ioc_by_str("0000:05:00.9"), nullptr);

    kvol_port_t* e0 = kvol_adapter_get_port(kvol_adapter_get_by_idx(2), 0);
    kvol_t* f3 = kvol_port_get_ioc_by_pcifn(e0, 3);
    ASSERT_EQ(path(f3), "0000:05:00.1");
    EXPECT_EQ(kvol_port_get_ioc_by_pcifn(e0, 0), nullptr);
    EXPECT_EQ(kvol_port_get_ioc_by_pcifn(nullptr, 0), nullptr);
    EXPECT_EQ(kvol_port_get_first_fcioc(e0), nullptr);
    EXPECT_EQ(kvol_port_get_first_ioc(e0), kvol_port_get_first_ethioc(e0));

    // The port's records are copies that map back to the global list.
    EXPECT_NE(f3, kvol_adapter_open_ioc(3));
    EXPECT_EQ(kvol_ioc_get_global_index(f3), 3);  // the whole path counts, not its adapter part
    kvol_t other{};
    snprintf(other.ioc_hwpath, sizeof(other.ioc_hwpath), "0000:09:00.0");
    EXPECT_EQ(kvol_ioc_get_global_index(&other), -1);
    EXPECT_EQ(kvol_ioc_get_by_eth_name("eth1"), kvol_adapter_open_ioc(3));
    EXPECT_EQ(kvol_ioc_get_by_eth_name("eth"), nullptr);
    EXPECT_EQ(kvol_ioc_get_inst_num_by_pwwn(W1), 11);
    EXPECT_EQ(kvol_ioc_get_inst_num_by_pwwn(0), -1);  // the Ethernet functions' zero WWN
}

TEST_F(Tree, ImpossiblePortIdIsRefusedWithoutAddingAnything) {
    kvol_t* h = add_ioc({"0000:03:00.0", "0000:03:00", KVO_IOC_TYPE_FC, 0, W0, nullptr});
    kvo_ioc_attr_t attr{};
    kvo_ioc_info_t info{};
    kvol_adapter_t* added = nullptr;
    for (uint32_t bad : {128u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        attr.port_id = bad;
        EXPECT_EQ(kvol_adapter_tree_add(h, &attr, &info, &added), KVO_STATUS_FAILED);
        EXPECT_EQ(added, nullptr);
        EXPECT_EQ(kvol_adapter_get_count(), 0);
    }
    attr.port_id = 127;
    ASSERT_EQ(kvol_adapter_tree_add(h, &attr, &info, &added), KVO_STATUS_OK);
    EXPECT_NE(added, nullptr);
    EXPECT_EQ(kvol_adapter_get_port_count(added), 128);
}

TEST(ChannelLists, AppendFindAndFreeByKind) {
    void* head = nullptr;
    for (int id : {4, 2, 4, 9}) {
        kvol_port_t* p = kvol_calloc<kvol_port_t>();
        p->id = id;
        kvol_list_append(&head, p, KVOL_LIST_PORT);
    }
    auto* first = static_cast<kvol_port_t*>(head);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->id, 4);
    EXPECT_EQ(first->next->id, 2);
    EXPECT_EQ(static_cast<kvol_port_t*>(kvol_list_find(head, 4, KVOL_LIST_PORT)), first);
    auto* nine = static_cast<kvol_port_t*>(kvol_list_find(head, 9, KVOL_LIST_PORT));
    ASSERT_NE(nine, nullptr);
    EXPECT_EQ(nine->next, nullptr);
    EXPECT_EQ(kvol_list_find(head, 5, KVOL_LIST_PORT), nullptr);
    EXPECT_EQ(kvol_list_find(nullptr, 4, KVOL_LIST_PORT), nullptr);
    EXPECT_EQ(kvol_list_find(head, 4, 7), nullptr);  // unknown kind

    // Ports own their IOC copies: freeing the port list releases them too (leak-checked).
    kvol_t* ioc = kvol_calloc<kvol_t>();
    ioc->id = 1;
    kvol_list_append(reinterpret_cast<void**>(&first->fcioc_list), ioc, KVOL_LIST_IOC);
    EXPECT_EQ(kvol_list_find(first->fcioc_list, 1, KVOL_LIST_IOC), ioc);
    kvol_list_free(&head, KVOL_LIST_PORT);
    EXPECT_EQ(head, nullptr);

    void* ads = nullptr;
    kvol_adapter_t* ad = kvol_calloc<kvol_adapter_t>();
    ad->id = 1;
    kvol_list_append(&ads, ad, KVOL_LIST_ADAPTER);
    kvol_port_t* port = kvol_calloc<kvol_port_t>();
    kvol_list_append(reinterpret_cast<void**>(&ad->port_list), port, KVOL_LIST_PORT);
    EXPECT_EQ(kvol_list_find(ads, 1, KVOL_LIST_ADAPTER), ad);
    kvol_list_free(&ads, KVOL_LIST_ADAPTER);
    EXPECT_EQ(ads, nullptr);
    kvol_list_free(nullptr, KVOL_LIST_IOC);  // tolerated
}

TEST(ChannelUnix, TimeStringFitsTheBufferOrFails) {
    char buf[64];
    ASSERT_EQ(kvol_get_time_string(86400 * 365, buf, sizeof(buf)), 0);
    EXPECT_GT(strlen(buf), 0u);
    EXPECT_NE(strchr(buf, ' '), nullptr);  // date, blank, time
    char tiny[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(kvol_get_time_string(0, tiny, sizeof(tiny)), 1);
    EXPECT_EQ(tiny[0], '\0');
    EXPECT_EQ(kvol_get_time_string(0, buf, 0), 1);
}
