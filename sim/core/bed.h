#pragma once
// A test bed: a directory with state.json (the model and the fault rules), root/ (the emulated
// file system subset), log (one line per driver request) and flash/ (adapter flash images).
// One process may hold one session on the bed named by KVOSIM_BED; every driver request and
// every emulated open runs inside `with_state`, which serialises threads (a mutex) and
// processes (flock on the bed's lock file) and reloads state.json when another process
// changed it.
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "model.h"

namespace kvosim {

constexpr const char* kBedEnv = "KVOSIM_BED";

// Driver instances as the drivers number them: each driver counts the functions it probed,
// in PCI probe order (ascending address), whatever sysfs shows or lists first.
struct Instances {
    std::vector<std::string> storage;  // PCI addresses, index = instance
    std::vector<std::string> eth;
};

struct State {
    std::string dir;   // the bed
    Host host;
    Instances inst;
    bool dirty = false;     // save state.json when the call ends
    bool fs_dirty = false;  // re-materialise root/ when the call ends

    std::string root() const { return dir + "/root"; }
    // The function with this PCI address, or a null FnRef.
    FnRef by_pci(const std::string& pci);
    FnRef by_host(int host);
    FnRef storage_instance(int instance);
    FnRef eth_instance(int instance);
    FnRef by_eth_name(const std::string& ifname);
    // Instance of a function (-1 when it has none).
    int instance_of(const Function& f) const;
    Adapter* adapter_of(const Function& f);
};

// Bed file layout.
std::string state_path(const std::string& dir);
std::string log_path(const std::string& dir);
std::string root_path(const std::string& dir);

// The bed of this process (KVOSIM_BED, absolute), "" when none.
const std::string& env_bed();

// Runs fn on the bed's current state under the locks; saves and re-materialises afterwards
// when fn marked the state so. Returns false (errno set) when the bed cannot be loaded;
// the reason is also in `why`.
bool with_state(const std::string& dir, const std::function<void(State&)>& fn,
                std::string* why = nullptr);

// Loads, saves and materialises without a session (the kvosim command).
bool load_state(const std::string& dir, State& st, std::string& why);
bool save_state(State& st, std::string& why);
// Creates or refreshes root/ from the model: directories, attribute files and nodes, then
// removes what the fault rules say is missing. Writes /etc/kvo.conf only when create is set.
bool materialise(State& st, bool create, std::string& why);
Instances probe_order(const Host& h);
// The SCSI part of root/: removes the scsi_device entries, class entries and nodes the model no
// longer has, and writes the devices (all, or those whose H:C:T:L is in `only`).
bool scsi_materialise(State& st, const std::set<std::string>* only, std::string& why);
// Hosts with more SCSI devices than this get the SCSI part of root/ at its first access.
constexpr size_t kEagerScsiDevices = 512;
// Whether the bed's SCSI part of root/ was written (the file scsi-built in the bed).
bool scsi_built(const std::string& dir);
// Removes from root/ what the `missing` fault rules name.
void apply_missing(State& st);

// Appends one line to the bed's log.
void append_log(const std::string& dir, const std::string& line);

// Small file helpers on real paths.
bool write_file(const std::string& path, const std::string& data, std::string& why);
bool read_file(const std::string& path, std::string& out);
bool make_dirs(const std::string& path);

}  // namespace kvosim
