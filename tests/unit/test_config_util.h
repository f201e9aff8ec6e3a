#pragma once
// Shared fixture of the configuration store tests: a private temporary file per test.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>

#include "kvol_config.h"

// What `write` prints to a stream.
template <typename F>
std::string written_by(F&& write) {
    char* buf = nullptr;
    size_t len = 0;
    FILE* fp = open_memstream(&buf, &len);
    write(fp);
    fclose(fp);
    std::string s(buf, len);
    free(buf);
    return s;
}

class ConfigTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/qmx-config-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        path_ = dir_ + "/kvo.conf";
        kvol_config_unload();
        memset(config_all, 0, sizeof config_all);
    }
    void TearDown() override {
        kvol_config_unload();
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }

    const char* path() const { return path_.c_str(); }

    void write_file(const std::string& text) const {
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out << text;
    }
    std::string read_file() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // Writes text, loads it and keeps the lock (the caller syncs or the fixture unloads).
    void load(const std::string& text) const {
        write_file(text);
        ASSERT_EQ(kvol_config_load(path()), KVO_STATUS_OK);
    }
    std::string sync() const {
        EXPECT_EQ(kvol_config_sync(path()), KVO_STATUS_OK);
        return read_file();
    }
    // The writer's output for the current tables, without touching the file.
    static std::string render() {
        return written_by([](FILE* fp) {
            kvol_config_ad_update(fp);
            kvol_config_ioc_update(fp);
        });
    }

    std::string dir_, path_;
};

// Independent of the code under test: "aa:bb:..." into the wwn_t byte order.
inline wwn_t wwn_of(const char* text) {
    uint8_t b[8] = {};
    sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &b[0], &b[1], &b[2], &b[3], &b[4],
           &b[5], &b[6], &b[7]);
    wwn_t w;
    memcpy(&w, b, sizeof w);
    return w;
}

inline mac_t mac_of(const char* text) {
    mac_t m{};
    sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &m.mac[0], &m.mac[1], &m.mac[2], &m.mac[3],
           &m.mac[4], &m.mac[5]);
    return m;
}

inline kvol_t fc_ioc(const char* pwwn) {
    kvol_t h{};
    h.ioc_type = KVO_IOC_TYPE_FC;
    h.pwwn = wwn_of(pwwn);
    return h;
}

inline kvol_t eth_ioc(const char* mac) {
    kvol_t h{};
    h.ioc_type = KVO_IOC_TYPE_LL;
    h.mac = mac_of(mac);
    return h;
}

// The WWN whose last written byte is `base`'s plus i (the number's top byte).
inline wwn_t wwn_plus(const char* base, int i) {
    return wwn_of(base) + static_cast<wwn_t>(i) * 0x100000000000000ull;
}

inline kvol_port_cfg_t vport_cfg(const char* pwwn, const char* nwwn, const char* name,
                                 uint32_t roles) {
    kvol_port_cfg_t vp{};
    vp.pwwn = wwn_of(pwwn);
    vp.nwwn = wwn_of(nwwn);
    snprintf(vp.sym_name.symname, sizeof vp.sym_name.symname, "%s", name);
    vp.roles = roles;
    return vp;
}

inline bool contains(const std::string& hay, const std::string& needle) {
    return hay.find(needle) != std::string::npos;
}

// Every part is in the text (want true) or none is (want false); a failure names the part.
inline ::testing::AssertionResult has_all(const std::string& text,
                                          std::initializer_list<std::string> parts,
                                          bool want = true) {
    for (const std::string& p : parts)
        if (contains(text, p) != want)
            return ::testing::AssertionFailure() << (want ? "missing: " : "present: ") << p;
    return ::testing::AssertionSuccess();
}
inline ::testing::AssertionResult has_none(const std::string& text,
                                           std::initializer_list<std::string> parts) {
    return has_all(text, parts, false);
}

// A vport record as its line in the file: "pwwn,nwwn,name,role,vf_id".
inline std::string vport_text(const kvol_vf_config_t* v) {
    return std::string(v->pwwn) + "," + v->nwwn + "," + v->name.symname + "," + v->role + "," +
           std::to_string(v->vf_id);
}
