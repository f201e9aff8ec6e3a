// qmxscsibench: `qmx fcpim --lunlist` against what an administrator would run instead on the
// same emulated host, in one run: lsscsi for the plain list of a SCSI host, and a per-LUN
// sg3_utils pipeline (bench/sg_pipeline.sh: sg_luns, sg_inq, sg_readcap) for the verbose
// columns. Beds grow in LUNs behind one FC function; `large` lists one function of the preset.
// See bench/README.md.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "bench_util.h"

namespace fs = std::filesystem;

namespace {

using namespace bench;

struct Options {
    std::string build;
    std::string work = "/tmp/qmxscsibench";
    int reps = 5;
    std::vector<std::string> beds = {"l16", "l64", "l256", "l1024", "large"};
    std::string markdown;
};

struct Bed {
    std::string name;
    int targets = 0;
    int luns = 0;  // behind the listed function
    int host = 0;  // its SCSI host number
};

// One FC adapter whose first function sees `targets` targets with luns/targets disks each.
std::string host_json(int targets, int luns) {
    std::ostringstream o;
    o << "{\"adapters\": [{\"serial\": \"TVS00A100\", \"model\": \"TV-1862\", \"model_descr\": "
         "\"Torvane-1862\", \"type\": \"FC\", \"card_type\": 1862, \"device_id\": \"0x22\", "
         "\"mode\": \"HBA\", \"max_speed\": 16, \"ports\": [{\"port\": 0, \"pwwn\": "
         "\"10:00:00:e1:f2:30:00:00\", \"nwwn\": \"20:00:00:e1:f2:30:00:00\", \"mac\": "
         "\"02:e1:f2:30:00:00\", \"functions\": [{\"pci\": \"0000:30:00.0\", \"driver\": \"kvo\", "
         "\"ioc_type\": \"FC\", \"host\": 1, \"node\": \"bsg\", \"pwwn\": \"10:00:00:e1:f2:30:00:01\", "
         "\"nwwn\": \"20:00:00:e1:f2:30:00:01\", \"rports\": [";
    for (int t = 0; t < targets; t++) {
        char w[32];
        snprintf(w, sizeof w, "50:0e:1f:21:00:00:00:%02x", t);
        o << (t ? ", " : "") << "{\"pwwn\": \"" << w << "\", \"port_id\": \"0x1000" << t
          << "\", \"target\": " << t << ", \"luns\": [";
        for (int l = 0; l < luns / targets; l++)
            o << (l ? ", " : "") << "{\"lun\": " << l << ", \"type\": \"disk\", \"blocks\": " << (2097152 + l) << "}";
        o << "]}";
    }
    o << "]}]}]}]}\n";
    return o.str();
}

Options parse(int argc, char** argv) {
    Options o;
    o.build = fs::canonical("/proc/self/exe").parent_path().parent_path().string();
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        auto val = [&]() -> std::string {
            if (i + 1 >= argc) die(a + " needs a value");
            return argv[++i];
        };
        if (a == "--work") o.work = val();
        else if (a == "--build") o.build = val();
        else if (a == "--reps") o.reps = std::max(1, atoi(val().c_str()));
        else if (a == "--markdown") o.markdown = val();
        else if (a == "--beds") {
            o.beds.clear();
            std::stringstream s(val());
            for (std::string b; std::getline(s, b, ',');) o.beds.push_back(b);
        } else die("usage: qmxscsibench [--build DIR] [--work DIR] [--reps N] "
                   "[--beds l16,l64,l256,l1024,large] [--markdown FILE]");
    }
    return o;
}

int lines_matching(const std::string& text, const std::regex& re) {
    int n = 0;
    std::istringstream s(text);
    for (std::string l; std::getline(s, l);) n += std::regex_search(l, re) ? 1 : 0;
    return n;
}

struct Tool {
    const char* label;
    std::vector<std::string> argv;
    std::regex row;  // one output line per LUN
    std::vector<double> wall;
};

}  // namespace

int main(int argc, char** argv) {
    const Options opt = parse(argc, argv);
    const std::string kvosim = opt.build + "/sim/kvosim";
    const std::string preload = opt.build + "/sim/libkvosim.so";
    const std::string qmx = opt.build + "/qmx";
    const std::string pipeline = (fs::path(__FILE__).parent_path() / "sg_pipeline.sh").string();
    fs::create_directories(opt.work);
    const std::string out = opt.work + "/out", err = opt.work + "/err";

    std::string table =
        "| bed | targets | LUNs | `--lunlist` | lsscsi | ratio | `--lunlist -v` | sg3_utils pipeline | ratio |\n"
        "|---|---:|---:|---:|---:|---:|---:|---:|---:|\n";
    for (const std::string& name : opt.beds) {
        Bed bed{name};
        const std::string dir = opt.work + "/" + name;
        fs::remove_all(dir);
        std::vector<std::string> create = {kvosim, "create", dir};
        if (name == "large") {
            bed.targets = 16;  // each FC function of the preset: 16 targets of 4 LUNs
            bed.luns = 64;
            create.insert(create.end(), {"--preset", "large"});
        } else {
            if (name.size() < 2 || name[0] != 'l' || atoi(name.c_str() + 1) < 4) die("unknown bed " + name);
            bed.luns = atoi(name.c_str() + 1);
            bed.targets = 4;
            const std::string json = opt.work + "/" + name + ".json";
            spit(json, host_json(bed.targets, bed.luns));
            create.insert(create.end(), {"--host", json});
        }
        // qmx reads with transfers to and from the device, which sg refuses from kernel 6.1 on.
        create.insert(create.end(), {"--sg-to-from", "read"});
        if (spawn(create, {}, "", out, err).status != 0) die("kvosim create " + name + ": " + slurp(err));
        if (spawn({kvosim, "show", dir}, {}, "", out, err).status != 0) die("kvosim show: " + slurp(err));
        std::smatch m;
        const std::string shown = slurp(out);
        if (!std::regex_search(shown, m, std::regex(" kvo FC host([0-9]+) "))) die("no FC function in " + name);
        bed.host = std::stoi(m[1]);
        const std::string h = std::to_string(bed.host);

        const std::vector<std::string> env = {"LD_PRELOAD=" + preload, "KVOSIM_BED=" + fs::absolute(dir).string()};
        std::vector<Tool> tools = {
            {"lunlist", {qmx, "fcpim", "--lunlist", "1/0"}, std::regex("^ [0-9]+:"), {}},
            {"lsscsi", {"/usr/bin/lsscsi", h + ":*:*:*"}, std::regex("^\\["), {}},
            {"lunlist -v", {qmx, "fcpim", "--lunlist", "1/0", "-v"}, std::regex("^ [0-9]+:[0-9]+:"), {}},
            {"pipeline", {"/bin/bash", pipeline, h}, std::regex("^[0-9]+:0:"), {}},
        };
        // The warm-up run checks that each tool saw every LUN (and builds a large bed's SCSI tree).
        for (Tool& t : tools) {
            Run r = spawn(t.argv, env, "", out, err);
            const int rows = lines_matching(slurp(out), t.row);
            if (r.status != 0 || rows != bed.luns)
                die(name + ": " + t.label + " exited " + std::to_string(r.status) + " with " + std::to_string(rows) +
                    " LUN rows, expected " + std::to_string(bed.luns) + "\n" + slurp(err));
        }
        for (int rep = 0; rep < opt.reps; rep++)
            for (Tool& t : tools) t.wall.push_back(ms(spawn(t.argv, env, "", out, err).wall_ns));

        auto cell = [](const Tool& t) { return fmt("%.1f", median(t.wall)) + " (" + fmt("%.1f", minimum(t.wall)) + ")"; };
        table += "| " + name + " | " + std::to_string(bed.targets) + " | " + std::to_string(bed.luns) + " | " +
                 cell(tools[0]) + " | " + cell(tools[1]) + " | " +
                 fmt("%.2f", median(tools[1].wall) / median(tools[0].wall)) + " | " + cell(tools[2]) + " | " +
                 cell(tools[3]) + " | " + fmt("%.1f", median(tools[3].wall) / median(tools[2].wall)) + " |\n";
        fprintf(stderr, "%s done\n", name.c_str());
    }
    printf("Median of %d runs (min in parentheses), wall ms; ratio = the other tool's median / qmx's.\n\n%s",
           opt.reps, table.c_str());
    if (!opt.markdown.empty()) spit(opt.markdown, table);
    return 0;
}
