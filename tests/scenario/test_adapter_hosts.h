#pragma once
// Emulated hosts and helpers shared by the adapter command scenarios.
#include <optional>
#include <string>
#include <vector>

#include "harness.h"

namespace adtest {

// Four adapters, numbered by qmx in this order (storage functions are found before Ethernet
// ones, and an adapter takes the number of its first function):
//   1 TVA1000001  FC HBA, device 0x22, two ports (0000:03:00.0, 0000:03:00.1)
//   2 TVA2000002  FC HBA, device 0x23, one port (0000:04:00.0)
//   3 TVC3000003  CNA, device 0x14, two ports, each an Ethernet and an FCoE function
//   4 TVN4000004  NIC-mode card, device 0x23, Ethernet functions only
// None is named.
inline const char* const kFourAdapters = R"({
  "adapters": [
    {"serial": "TVA1000001", "model": "TV-1862", "model_descr": "TV-1862", "type": "FC",
     "device_id": 34, "card_type": 1862, "chip_rev": "B1",
     "ports": [
       {"pwwn": "10:00:00:e1:f2:01:00:00", "functions": [{"pci": "0000:03:00.0"}]},
       {"pwwn": "10:00:00:e1:f2:01:00:01", "functions": [{"pci": "0000:03:00.1"}]}]},
    {"serial": "TVA2000002", "model": "TV-1862", "model_descr": "TV-1862", "type": "FC",
     "device_id": 35,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:02:00:00", "functions": [{"pci": "0000:04:00.0"}]}]},
    {"serial": "TVC3000003", "model": "TV-1867", "model_descr": "TV-1867", "type": "CNA",
     "device_id": 20, "mode": "CNA", "cna_capable": true,
     "ports": [
       {"pwwn": "10:00:00:e1:f2:03:00:00", "mac": "02:e1:f2:03:00:00",
        "functions": [{"pci": "0000:05:00.0", "driver": "tqe", "mac": "02:e1:f2:03:10:00"},
                      {"pci": "0000:05:00.2", "ioc_type": "FCoE"}]},
       {"pwwn": "10:00:00:e1:f2:03:00:01", "mac": "02:e1:f2:03:00:01",
        "functions": [{"pci": "0000:05:00.1", "driver": "tqe", "mac": "02:e1:f2:03:10:01"},
                      {"pci": "0000:05:00.3", "ioc_type": "FCoE"}]}]},
    {"serial": "TVN4000004", "model": "TV-1869", "model_descr": "TV-1869", "type": "NIC",
     "device_id": 35, "mode": "NIC", "cna_capable": true,
     "ports": [
       {"mac": "02:e1:f2:04:00:00",
        "functions": [{"pci": "0000:06:00.0", "driver": "tqe", "mac": "02:e1:f2:04:10:00"}]}]}
  ]
})";

// The four adapters with adapter 1's second function disabled.
inline std::string partly_disabled() {
    std::string host = kFourAdapters;
    const std::string fn = R"({"pci": "0000:03:00.1"})";
    return host.replace(host.find(fn), fn.size(), R"({"pci": "0000:03:00.1", "state": 10})");
}

inline std::string rule() { return std::string(72, '-') + "\n"; }

// The emulated state of the adapter with this serial number.
inline nlohmann::json adapter_state(const scen::Bed& bed, const std::string& serial) {
    const nlohmann::json st = bed.state();
    for (const nlohmann::json& a : st["adapters"])
        if (a["serial"] == serial) return a;
    ADD_FAILURE() << "no adapter " << serial << " in state.json";
    return nlohmann::json::object();
}

// The states of every function of an adapter, in description order.
inline std::vector<int> function_states(const scen::Bed& bed, const std::string& serial) {
    std::vector<int> out;
    const nlohmann::json a = adapter_state(bed, serial);
    for (const nlohmann::json& p : a["ports"])
        for (const nlohmann::json& f : p["functions"]) out.push_back(f["state"].get<int>());
    return out;
}

// The bytes of a flash partition, read from the adapter's flash image in the bed.
inline std::optional<std::string> flash_part(const scen::Bed& bed, const std::string& serial,
                                             int type) {
    nlohmann::json a = adapter_state(bed, serial);
    std::optional<std::string> img = scen::read_text(bed.dir() + "/" + a["flash"]["file"].get<std::string>());
    if (!img) return std::nullopt;
    for (const nlohmann::json& p : a["flash"]["partitions"]) {
        if (p["type"].get<int>() != type) continue;
        size_t off = p["offset"].get<size_t>(), size = p["size"].get<size_t>();
        if (off + size > img->size()) return std::nullopt;
        return img->substr(off, size);
    }
    return std::nullopt;
}

constexpr int kAsicPart = 6;

}  // namespace adtest
