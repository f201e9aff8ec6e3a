// FC pass-through: ELS and CT frames sent through the library (kvol_fcpt) to a remote port's FC
// transport node and to the fabric through the function's own node, the emulated fabric's and
// ports' answers, and the framing the emulated transport refuses.
#include <filesystem>
#include <string>
#include <vector>

#include "harness.h"

using scen::Bed;
using scen::Result;

namespace {

// Host 5 (bsg nodes): array A (target id 0, rport number 0), an initiator (number 1), array B
// (target id 1, number 2), array C with its nexus offline (target id 3, number 3) and a fabric
// controller (no node). Host 6 (old-style nodes): array D.
const char* kHost = R"({"adapters": [{"serial": "TVF0000001", "model": "TV-1862", "type": "FC",
 "ports": [{"pwwn": "10:00:00:e1:f2:00:00:00", "functions": [{"pci": "0000:03:00.0", "host": 5, "rports": [
   {"pwwn": "50:0e:1f:20:00:00:00:0a", "port_id": "0x020100", "target": 0},
   {"pwwn": "21:00:00:e1:f2:99:00:00", "port_id": "0x020200", "role": "initiator", "target": 9},
   {"pwwn": "50:0e:1f:20:00:00:00:0b", "port_id": "0x020300", "target": 1},
   {"pwwn": "50:0e:1f:20:00:00:00:0c", "port_id": "0x020400", "target": 3, "ext": {"itnim": {"state": 0}}},
   {"pwwn": "20:fe:00:05:1e:00:00:01", "port_id": "0xfffffd", "role": "fabric", "target": 60}]}]},
  {"pwwn": "10:00:00:e1:f2:00:00:01", "functions": [{"pci": "0000:03:00.1", "host": 6, "node": "fc_host",
   "rports": [{"pwwn": "50:0e:1f:20:00:00:00:0d", "port_id": "0x030100", "target": 0}]}]}]}]})";

const std::string kAdisc = "52" + std::string(54, '0');           // ADISC, 28 bytes
const std::string kCt = "01000000fc020000";                         // CT IU to the name server
const std::string kGidFt = kCt + "0171000000000000" + "00000008";  // GID_FT, FC-4 type FCP

}  // namespace

TEST(FcPassthru, ElsToRemotePortsAndCtToTheFabricGetTheirAnswers) {
    Bed bed = Bed::from_json(kHost);
    struct Case {
        std::vector<std::string> args;  // IOC RPWWN|0 els|ct D_ID PAYLOAD
        std::string out;
        std::string log;  // the transport's line
    } cases[] = {
        {{"0", "50:0e:1f:20:00:00:00:0a", "els", "0", kAdisc},
         "rc=0 len=28 rsp=02000000" "00000000" "500e1f200000000a" "500e1f200000000a" "00020100\n",
         "bsg /dev/bsg/rport-5:0-0 ELS ADISC -> LS_ACC len=28"},
        {{"0", "50:0e:1f:20:00:00:00:0a", "els", "0", "03000000"}, "rc=0 len=8 rsp=01000000000b0000\n",
         "bsg /dev/bsg/rport-5:0-0 ELS 0x03 -> LS_RJT reason=0x0b len=8"},
        {{"0", "50:0e:1f:20:00:00:00:0c", "els", "0", "10000000"}, "rc=42\n",
         "bsg /dev/bsg/rport-5:0-3 ELS ECHO -> errno=EIO (remote port blocked)"},
        // The old-style node when there is no /dev/bsg one.
        {{"1", "50:0e:1f:20:00:00:00:0d", "els", "0", "10000000cafe"}, "rc=0 len=6 rsp=02000000cafe\n",
         "bsg /dev/rport-6:0-0 ELS ECHO -> LS_ACC len=6"},
        // To the fabric: the name server lists the port itself and its remote ports by address.
        {{"0", "0", "ct", "fffffc", kGidFt},
         "rc=0 len=36 rsp=" + kCt + "8002000000000000" + "00010500000201000002020000020300" "80020400\n",
         "bsg /dev/bsg/fc_host5 CT GID_FT d_id=0xfffffc -> CT_ACC len=36"},
        {{"0", "0", "ct", "fffffc", kCt + "0112000000000000" + "00020300"},
         "rc=0 len=24 rsp=" + kCt + "8002000000000000" + "500e1f200000000b\n",
         "bsg /dev/bsg/fc_host5 CT GPN_ID d_id=0xfffffc -> CT_ACC len=24"},
        {{"0", "0", "ct", "fffffc", kCt + "0112000000000000" + "00777777"},
         "rc=0 len=16 rsp=" + kCt + "8001000000090100\n",
         "bsg /dev/bsg/fc_host5 CT GPN_ID d_id=0xfffffc -> CT_RJT reason=0x09 explanation=0x01 len=16"},
        {{"0", "0", "els", "fffffd", "78000000"},
         "rc=0 len=24 rsp=0200000000100000" "100000051e000006" "100000051e000006\n",
         "bsg /dev/bsg/fc_host5 ELS RNID d_id=0xfffffd -> LS_ACC len=24"},
        {{"0", "0", "els", "123456", "10000000"}, "rc=42\n",
         "bsg /dev/bsg/fc_host5 ELS ECHO d_id=0x123456 -> errno=EIO (no port at 0x123456)"},
        // The library opens a remote port's node by the port's SCSI target id, the kernel names
        // it by the port's number on the host: where the two differ another port gets the frame.
        {{"0", "50:0e:1f:20:00:00:00:0b", "els", "0", kAdisc},
         "rc=0 len=28 rsp=0200000000000000" "210000e1f2990000" "210000e1f2990000" "00020200\n",
         "bsg /dev/bsg/rport-5:0-1 ELS ADISC -> LS_ACC len=28"},
    };
    for (const Case& c : cases) {
        bed.clear_log();
        std::vector<std::string> argv = {FCPT_CLIENT_BIN};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        Result r = bed.run(argv);
        EXPECT_EQ(r.out, c.out) << c.log;
        EXPECT_EQ(bed.log().back(), c.log);
        EXPECT_TRUE(bed.log_clean());
    }
    // Nodes for the target and initiator ports, by number; none for the fabric's.
    for (const char* node : {"/dev/bsg/rport-5:0-3", "/dev/rport-6:0-0"})
        EXPECT_TRUE(std::filesystem::exists(bed.root() + node)) << node;
    EXPECT_FALSE(std::filesystem::exists(bed.root() + "/dev/bsg/rport-5:0-4"));
}

TEST(FcPassthru, TransportRefusesRequestsItsNodeDoesNotTakeAndFramesThatContradictTheirPayload) {
    Bed bed = Bed::preset("demo");
    // Well formed, as the FC transport defines the request: the whole reply comes back.
    EXPECT_EQ(bed.probe({"fcpt", "/dev/bsg/rport-3:0-0", "0x40000001", "0", "05000000"}).out,
              "rc=0 result=0 rcv_len=8 ctels=1 reason=0x0b resid=248\nrsp=01000000000b0000\n");
    struct Bad {
        std::vector<std::string> args;  // NODE MSGCODE D_ID PAYLOAD [FIELD=V]
        int err;
        std::string reason;
    } cases[] = {
        {{"/dev/bsg/rport-3:0-0", "0x80000003", "0x010400", "10000000"}, 53,
         "msgcode 0x80000003 is not a remote port's request -> errno=EBADR"},
        {{"/dev/bsg/fc_host3", "0x40000002", "0", kGidFt}, 53,
         "msgcode 0x40000002 is not a host's pass-through request -> errno=EBADR"},
        {{"/dev/bsg/rport-3:0-0", "0x40000001", "0", "10000000", "dout_len=0"}, 22,
         "a frame needs a request and a response payload (dout 0, din 256 bytes) -> errno=EINVAL"},
        {{"/dev/bsg/rport-3:0-0", "0x40000001", "0", "10000000", "code=0x52"}, 22,
         "ELS command 0x52 in the request, 0x10 in a 4-byte payload -> errno=EINVAL"},
        {{"/dev/bsg/fc_host3", "0x80000004", "0xfffffc", kGidFt, "preamble=2"}, 22,
         "CT preamble words of the request are not the first 12 bytes of the 20-byte payload -> errno=EINVAL"},
        {{"/dev/bsg/fc_host3", "0x80000003", "0xfffffc", "10000000", "timeout=30000"}, 22,
         "timeout 30000 ms, expected 60000 -> errno=EINVAL"},
        {{"/dev/bsg/fc_host3", "0x80000003", "0xfffffc", "10000000", "iovec=1"}, 22,
         "iovec transfers (1/0), expected flat buffers -> errno=EINVAL"},
    };
    for (const Bad& c : cases) {
        bed.clear_log();
        std::vector<std::string> args = {"fcpt"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        EXPECT_EQ(bed.probe(args).out.rfind("rc=-1 errno=" + std::to_string(c.err) + " ", 0), 0u) << c.reason;
        EXPECT_EQ(bed.log(), std::vector<std::string>{"BAD bsg " + c.args[0] + " " + c.reason});
    }
}
