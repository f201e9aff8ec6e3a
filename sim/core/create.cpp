// Creating a bed from a host model.
#include "create.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "emu.h"
#include "flash.h"
#include "kernel_scsi.h"
#include "scsi.h"

namespace kvosim {

namespace {

bool empty_or_missing(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return errno == ENOENT;
    bool empty = true;
    while (dirent* e = readdir(d))
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) empty = false;
    closedir(d);
    return empty;
}

}  // namespace

bool create_bed(const std::string& dir, Host host, const json* raw, std::string& why) {
    std::string norm;
    if (!normalise_path(dir.c_str(), norm)) {
        why = dir + ": the bed needs an absolute path";
        return false;
    }
    if (emulated_path(norm)) {
        why = dir + ": a bed cannot live under an emulated path";
        return false;
    }
    if (host.kernel_scsi && !adopt_kernel_scsi(host, "/sys", why)) return false;
    if (!empty_or_missing(dir)) {
        why = dir + ": exists and is not empty";
        return false;
    }
    if (!make_dirs(dir)) {
        why = dir + ": " + strerror(errno);
        return false;
    }
    const json* raw_ads = raw != nullptr && raw->contains("adapters") ? &(*raw)["adapters"] : nullptr;
    for (size_t i = 0; i < host.adapters.size(); i++) {
        const json* ra = raw_ads != nullptr && raw_ads->is_array() && i < raw_ads->size() ? &(*raw_ads)[i] : nullptr;
        if (!flash_create(dir, host.adapters[i], ra, why)) return false;
    }
    State st;
    st.dir = dir;
    st.host = std::move(host);
    assign_scsi_names(st.host);
    if (!materialise(st, true, why)) return false;
    st.inst = probe_order(st.host);
    if (!save_state(st, why)) return false;
    return write_file(log_path(dir), "", why);
}

}  // namespace kvosim
