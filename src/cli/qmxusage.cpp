// The usage printer, and the usage texts of the classes that have no handler unit yet (a class
// with handlers keeps its text beside them). One block per command in table order:
// "\t--cmd <args>\n", its help lines "\t\t...\n" and a blank line. The extended text
// (qmx <class> --ehelp) adds the hidden commands and options.
#include <cstdio>
#include <span>

#include "qmxhandlers.h"

void qmx_print_usage(const char* example, std::span<const qmx_usage_entry> entries, int extended) {
    printf("Example: qmx %s\n\n", example);
    for (const qmx_usage_entry& e : entries) {
        if (e.hidden && !extended) continue;
        printf("\t%s%s%s%s\n", e.name, *e.args ? " " : "", e.args, extended ? e.ext_args : "");
        printf("%s%s\n", e.help, extended ? e.ext_help : "");
    }
}

namespace {

const qmx_usage_entry auth_usage[] = {
    {"--algo", "<pcifn> <md5|sha1|ms|sm>",
     "\t\tSets the hash algorithm of the authentication\n"},
    {"--encrypt", "<pcifn> <on|off>", "\t\tEnables or disables encryption of the secret\n"},
    {"--policy", "<pcifn> <on|off>", "\t\tEnables or disables authentication on the port\n"},
    {"--secret", "<pcifn> <secret>", "\t\tSets the shared secret of the authentication\n"},
    {"--show", "<pcifn>", "\t\tDisplays the authentication settings and status\n"},
    {"--stats", "<pcifn>", "\t\tDisplays authentication statistics\n"},
    {"--statsclr", "<pcifn>", "\t\tClears authentication statistics\n"},
};

const qmx_usage_entry bios_usage[] = {
    {"--disable", "<port_id>", "\t\tDisables the BIOS on the port\n"},
    {"--enable", "<port_id> [-o <auto|flash|firmware>] [-s <speed>] [-p <0..3> <pwwn> <LUN#>]",
     "\t\tEnables the BIOS on the port; -o selects where the boot LUNs\n"
     "\t\tcome from, -s sets the link speed and -p sets one of up to\n"
     "\t\tfour boot LUNs (the option may be repeated)\n"},
    {"--query", "<port_id>", "\t\tDisplays the BIOS settings of the port\n"},
};

const qmx_usage_entry bootdup_usage[] = {
    {"--query", "<ad_id> [-t <part_type>] [-i <instance>]",
     "\t\tDisplays the flash partitions of the boot image\n"},
    {"--read", "<ad_id> <part_type> <file>", "\t\tSaves a boot image partition into <file>\n"},
    {"--swquery", "<ad_id> [-t <part_type>] [-i <instance>]",
     "\t\tDisplays the versions of the boot images\n"},
    {"--update", "<ad_id> <part_type> <file> [-i <instance>] [-o <offset>]",
     "\t\tWrites <file> into a boot image partition\n"},
};

const qmx_usage_entry dcb_usage[] = {
    {"--query", "<port_id>", "\t\tDisplays the DCB attributes of the port\n"},
    {"--stats", "<port_id>", "\t\tDisplays DCB statistics\n"},
    {"--statsclr", "<port_id>", "\t\tClears DCB statistics\n"},
};

const qmx_usage_entry debug_usage[] = {
    {"--dsave", "<pcifn> <file>", "\t\tSaves the driver debug data into <file>\n"},
    {"--dstart", "<pcifn>", "\t\tStarts the driver trace\n"},
    {"--dstop", "<pcifn>", "\t\tStops the driver trace\n"},
    {"--dtrc", "<pcifn> <file>", "\t\tSaves the driver trace into <file>\n"},
    {"--dump", "<pcifn>", "\t\tTakes a firmware dump\n"},
    {"--fcoresave", "<pcifn> <file>", "\t\tSaves the firmware core into <file>\n"},
    {"--fsave", "<pcifn> <file>", "\t\tSaves the firmware save area into <file>\n"},
    {"--fsaveclr", "<pcifn>", "\t\tClears the firmware save area\n"},
    {"--fstart", "<pcifn>", "\t\tStarts the firmware trace\n"},
    {"--fstop", "<pcifn>", "\t\tStops the firmware trace\n"},
    {"--ftrc", "<pcifn> <file>", "\t\tSaves the firmware trace into <file>\n"},
    {"--itrc", "<file>", "\t\tSaves the driver's internal trace into <file>\n"},
    {"--membase", "<pcifn>", "\t\tDisplays the memory base address of the function\n", true},
    {"--memread", "<pcifn> [<offset>] [<length>]", "\t\tDisplays adapter memory\n", true},
    {"--portlog", "<pcifn>", "\t\tDisplays the port log\n"},
    {"--portlogclear", "<pcifn>", "\t\tClears the port log\n"},
    {"--portlogctl", "<pcifn> <on|off>", "\t\tEnables or disables the port log\n"},
    {"--regread", "<pcifn> <offset> [<count>] [<width>]", "\t\tReads adapter registers\n",
     true},
    {"--regwrite", "<pcifn> <offset> <value> [<width>]", "\t\tWrites an adapter register\n",
     true},
};

const qmx_usage_entry diag_usage[] = {
    {"--beacon", "<port_id> <on|off> [<duration>]",
     "\t\tStarts or stops beaconing on the port (duration in seconds)\n"},
    {"--dportdisable", "<port_id>", "\t\tDisables D-port mode on the port\n"},
    {"--dportenable", "<port_id> [-p <pattern>] [-c <count>]",
     "\t\tEnables D-port mode on the port\n"},
    {"--dportshow", "<port_id>", "\t\tDisplays the D-port test results\n"},
    {"--dportstart", "<port_id> [-p <pattern>] [-c <count>]",
     "\t\tRestarts the D-port test on the port\n"},
    {"--ethloopback", "<port_id> [-t <serdes|external>] [-c <count>] [-p <pattern>]",
     "\t\tRuns an Ethernet loopback test\n"},
    {"--ledtest", "<port_id> <led> <duration> [-c <count>]", "\t\tBlinks the port LED\n"},
    {"--loopback",
     "<port_id> [-t <serdes|internal|external>] [-s <speed>] [-c <count>] [-p <pattern>]",
     "\t\tRuns a Fibre Channel loopback test\n"},
    {"--memtest", "<ad_id>", "\t\tRuns the adapter memory test\n"},
    {"--pciloopback", "<pcifn> <pattern> [-c <count>]", "\t\tRuns a PCI loopback test\n"},
    {"--queuetest", "<port_id> [-q <queue_no>]", "\t\tRuns the request queue test\n"},
    {"--sfpshow", "<port_id>", "\t\tDisplays the SFP information of the port\n"},
    {"--tempshow", "<ad_id>", "\t\tDisplays the temperature of the adapter\n"},
};

const qmx_usage_entry ethboot_usage[] = {
    {"--disable", "<port_id>", "\t\tDisables network boot on the port\n"},
    {"--enable", "<port_id>", "\t\tEnables network boot on the port\n"},
    {"--query", "<port_id>", "\t\tDisplays the network boot settings of the port\n"},
    {"--vlan", "<port_id> <vlan_id>", "\t\tSets the VLAN of network boot (0..4094)\n"},
};

const qmx_usage_entry vf_usage[] = {
    {"--stats", "<port_id>", "\t\tDisplays fabric statistics\n"},
    {"--statsclr", "<port_id>", "\t\tClears fabric statistics\n"},
};

const qmx_usage_entry fcoe_usage[] = {
    {"--disable", "<port_id>", "\t\tDisables FCoE on the port\n"},
    {"--enable", "<port_id>", "\t\tEnables FCoE on the port\n"},
    {"--stats", "<port_id>", "\t\tDisplays FCoE statistics\n"},
    {"--statsclr", "<port_id>", "\t\tClears FCoE statistics\n"},
};

const qmx_usage_entry fcdiag_usage[] = {
    {"--fcecho", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tSends an FC echo to the remote port\n"},
    {"--fcping", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tPings the remote port\n"},
    {"--fctraceroute", "<pcifn> <rpwwn> [-l <lpwwn>]",
     "\t\tTraces the route to the remote port\n"},
    {"--linkbeacon", "<port_id> <on|off>", "\t\tStarts or stops link beaconing\n"},
    {"--scsitest", "<pcifn> <rpwwn> [-l <lpwwn>]",
     "\t\tSends SCSI test commands to the LUNs of the remote port\n"},
};

const qmx_usage_entry flash_usage[] = {
    {"--doptrom", "<ad_id>", "\t\tDisables the option ROM of the adapter\n"},
    {"--dumpasicblk", "<ad_id> <file>", "\t\tSaves the ASIC block into <file>\n"},
    {"--eoptrom", "<ad_id>", "\t\tEnables the option ROM of the adapter\n"},
    {"--erase", "<ad_id> <part_type> [-i <instance>] [-o <offset>] [-l <length>]",
     "\t\tErases a flash partition\n"},
    {"--query", "<ad_id>", "\t\tDisplays the flash partitions of the adapter\n"},
    {"--read", "<ad_id> <part_type> <file> [-i <instance>] [-o <offset>] [-l <length>]",
     "\t\tSaves a flash partition into <file>\n"},
    {"--update", "<ad_id> <part_type> <file> [-i <instance>] [-o <offset>] [-f]",
     "\t\tWrites <file> into a flash partition\n"},
};

const qmx_usage_entry fruvpd_usage[] = {
    {"--dump", "<ad_id> <file>", "\t\tSaves the FRU VPD into <file>\n"},
    {"--read", "<ad_id> <offset> <length>", "\t\tDisplays FRU VPD bytes\n"},
    {"--update", "<ad_id> <file>", "\t\tWrites the FRU VPD from <file>\n"},
    {"--write", "<ad_id> <offset> <byte> [<byte> ...]",
     "\t\tWrites up to 63 FRU VPD bytes from <offset> on\n"},
};

const qmx_usage_entry ipfc_usage[] = {
    {"--disable", "<pcifn>", "\t\tDisables IP over FC\n"},
    {"--enable", "<pcifn>", "\t\tEnables IP over FC\n"},
    {"--query", "<pcifn>", "\t\tDisplays the IP over FC attributes\n"},
    {"--stats", "<pcifn>", "\t\tDisplays IP over FC statistics\n"},
    {"--statsclr", "<pcifn>", "\t\tClears IP over FC statistics\n"},
};

const qmx_usage_entry lport_usage[] = {
    {"--bfs_list", "<pcifn> [-v]", "\t\tLists the boot over SAN logical ports\n"},
    {"--list", "<pcifn>", "\t\tLists the logical ports of the function\n"},
    {"--query", "<pcifn> [-l <lpwwn>]", "\t\tDisplays the attributes of the logical port\n"},
    {"--stats", "<pcifn> [-l <lpwwn>]", "\t\tDisplays logical port statistics\n"},
    {"--statsclr", "<pcifn> [-l <lpwwn>]", "\t\tClears logical port statistics\n"},
};

const qmx_usage_entry log_usage[] = {
    {"--level", "<pcifn> [<Critical|Error|Warning|Info>] [-m <module>]",
     "\t\tDisplays or sets the log level\n"},
};

const qmx_usage_entry mfg_usage[] = {
    {"--update",
     "<ad_id> -m <card_model> -n <nports> -s <serial_num> [-c <capability>] "
     "[-w <base_wwn>] [-f]",
     "\t\tRewrites the manufacturing block of the adapter\n"},
};

const qmx_usage_entry pcifn_usage[] = {
    {"--list", "<ad_id>", "\t\tLists the PCI functions of the adapter\n"},
};

const qmx_usage_entry phy_usage[] = {
    {"--query", "<port_id>", "\t\tDisplays the PHY attributes of the port\n"},
    {"--read", "<port_id> <file>", "\t\tSaves the PHY firmware into <file>\n"},
    {"--stats", "<port_id>", "\t\tDisplays PHY statistics\n"},
    {"--update", "<port_id> <file>", "\t\tWrites the PHY firmware from <file>\n"},
};

const qmx_usage_entry port_usage[] = {
    {"--alpaclr", "<port_id>", "\t\tClears the hard ALPA of the port\n"},
    {"--alpaset", "<port_id> [<alpa>]", "\t\tSets the hard ALPA of the port\n"},
    {"--bfs_list", "<ad_id>", "\t\tLists the boot over SAN ports of the adapter\n"},
    {"--dfsize", "<port_id> [<size>]",
     "\t\tDisplays or sets the maximum receive frame size\n"},
    {"--disable", "<port_id>", "\t\tDisables the port\n"},
    {"--enable", "<port_id>", "\t\tEnables the port\n"},
    {"--events", "<ad_id>", "\t\tDisplays the number of events per category\n"},
    {"--faa_query", "<port_id>", "\t\tDisplays the fabric assigned address state\n"},
    {"--bbcr_enable", "<port_id> [<bb_scn>]", "\t\tEnables buffer credit recovery\n"},
    {"--bbcr_disable", "<port_id>", "\t\tDisables buffer credit recovery\n"},
    {"--bbcr_query", "<port_id>", "\t\tDisplays buffer credit recovery settings\n"},
    {"--fwstats", "<port_id>", "\t\tDisplays firmware port statistics\n"},
    {"--fwstatsclr", "<port_id>", "\t\tClears firmware port statistics\n"},
    {"--list", "[<ad_id>]", "\t\tLists the ports of all adapters or of one adapter\n"},
    {"--mode", "<port_id> <HBA|CNA|NIC> [-f]", "\t\tConfigures the personality of the port\n"},
    {"--name", "<port_id> [<port-name>]", "\t\tDisplays or sets the name of the port\n"},
    {"--pcifn_ethlist", "<ad_id> <port#>",
     "\t\tLists the Ethernet PCI functions of the port\n"},
    {"--pcifn_fclist", "<ad_id> <port#>", "\t\tLists the storage PCI functions of the port\n"},
    {"--pcifn_list", "<ad_id> <port#>", "\t\tLists the PCI functions of the port\n"},
    {"--perf", "<port_id> [-c <count>] [-i <interval>]",
     "\t\tDisplays the port throughput at an interval\n", true},
    {"--query", "<port_id>", "\t\tDisplays the attributes of the port\n"},
    {"--speed", "<port_id> [<1|2|4|8|10|16|auto>]", "\t\tDisplays or sets the port speed\n"},
    {"--stats", "<port_id>", "\t\tDisplays port statistics\n"},
    {"--statsclr", "<port_id>", "\t\tClears port statistics\n"},
    {"--topology", "<port_id> [<p2p|loop>]", "\t\tDisplays or sets the port topology\n"},
    {"--fec_query", "<port_id>", "\t\tDisplays the forward error correction state\n"},
};

const qmx_usage_entry qos_usage[] = {
    {"--disable", "<port_id>", "\t\tDisables QoS on the port\n"},
    {"--enable", "<port_id>", "\t\tEnables QoS on the port\n"},
    {"--query", "<port_id> [-v]", "\t\tDisplays the QoS settings of the port\n"},
    {"--setbw", "<port_id> -h <high%> -m <medium%> -l <low%>",
     "\t\tSets the bandwidth share of each QoS priority\n"},
    {"--stats", "<port_id>", "\t\tDisplays QoS statistics\n"},
    {"--statsclr", "<port_id>", "\t\tClears QoS statistics\n"},
};

const qmx_usage_entry ratelim_usage[] = {
    {"--defspeed", "<port_id> [<1|2|4|8>]",
     "\t\tDisplays or sets the default speed of rate limiting\n"},
    {"--disable", "<port_id>", "\t\tDisables target rate limiting\n"},
    {"--enable", "<port_id>", "\t\tEnables target rate limiting\n"},
    {"--query", "<port_id>", "\t\tDisplays the rate limiting settings\n"},
};

const qmx_usage_entry rport_usage[] = {
    {"--bfs_list", "<pcifn> [-v]", "\t\tLists the boot over SAN remote ports\n"},
    {"--list", "<pcifn> [-l <lpwwn>]", "\t\tLists the remote ports of the logical port\n"},
    {"--query", "<pcifn> <rpwwn> [-l <lpwwn>]",
     "\t\tDisplays the attributes of the remote port\n"},
    {"--speed", "<pcifn> <rpwwn> <speed> [-l <lpwwn>]",
     "\t\tSets the speed of the remote port for rate limiting\n"},
    {"--stats", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tDisplays remote port statistics\n"},
    {"--statsclr", "<pcifn> <rpwwn> [-l <lpwwn>]", "\t\tClears remote port statistics\n"},
};

const qmx_usage_entry trunk_usage[] = {
    {"--disable", "<ad_id>", "\t\tDisables trunking on the adapter\n"},
    {"--enable", "<ad_id>", "\t\tEnables trunking on the adapter\n"},
    {"--query", "<ad_id>", "\t\tDisplays the trunk attributes\n"},
};

const qmx_usage_entry vhba_usage[] = {
    {"--bw", "<pcifn> <min_bw>", "\t\tSets the minimum bandwidth of the virtual HBA\n"},
    {"--create", "<port_id> [-b <min_bw>]", "\t\tCreates a virtual HBA on the port\n"},
    {"--delete", "<pcifn>", "\t\tDeletes the virtual HBA\n"},
    {"--disable", "<pcifn>", "\t\tDisables the virtual HBA\n"},
    {"--enable", "<pcifn>", "\t\tEnables the virtual HBA\n"},
    {"--intr", "<pcifn> -l <latency> [-d <delay>]",
     "\t\tSets the interrupt coalescing of the virtual HBA\n"},
    {"--query", "<pcifn>", "\t\tDisplays the attributes of the virtual HBA\n"},
    {"--stats", "<pcifn>", "\t\tDisplays virtual HBA statistics\n"},
    {"--statsclr", "<pcifn>", "\t\tClears virtual HBA statistics\n"},
};

const qmx_usage_entry vnic_usage[] = {
    {"--bw", "<pcifn> -m <min_bw> [-x <max_bw>]", "\t\tSets the bandwidth of the vNIC\n"},
    {"--create", "<port_id> [-b <min_bw>] [-x <max_bw>]", "\t\tCreates a vNIC on the port\n"},
    {"--delete", "<pcifn>", "\t\tDeletes the vNIC\n"},
    {"--disable", "<pcifn>", "\t\tDisables the vNIC\n"},
    {"--enable", "<pcifn>", "\t\tEnables the vNIC\n"},
    {"--query", "<pcifn>", "\t\tDisplays the attributes of the vNIC\n"},
    {"--stats", "<pcifn>", "\t\tDisplays vNIC statistics\n"},
    {"--statsclr", "<pcifn>", "\t\tClears vNIC statistics\n"},
};

const qmx_usage_entry vport_usage[] = {
    {"--create", "<pcifn> <vpwwn> [-n <vnwwn>] [-s <name>]",
     "\t\tCreates an NPIV virtual port\n"},
    {"--delete", "<pcifn> <vpwwn>", "\t\tDeletes the virtual port\n"},
    {"--query", "<pcifn> <vpwwn>", "\t\tDisplays the attributes of the virtual port\n"},
    {"--stats", "<pcifn> <vpwwn>", "\t\tDisplays virtual port statistics\n"},
    {"--statsclr", "<pcifn> <vpwwn>", "\t\tClears virtual port statistics\n"},
};

}  // namespace

void qmx_auth_usage(int extended) { qmx_print_usage("auth --show 1/0", auth_usage, extended); }
void qmx_bios_usage(int extended) { qmx_print_usage("bios --query 1/0", bios_usage, extended); }
void qmx_bootdup_usage(int extended) {
    qmx_print_usage("bootdup --query 1", bootdup_usage, extended);
}
void qmx_dcb_usage(int extended) { qmx_print_usage("dcb --query 1/0", dcb_usage, extended); }
void qmx_debug_usage(int extended) { qmx_print_usage("debug --dump 1/0", debug_usage, extended); }
void qmx_diag_usage(int extended) { qmx_print_usage("diag --sfpshow 1/0", diag_usage, extended); }
void qmx_ethboot_usage(int extended) {
    qmx_print_usage("ethboot --query 1/0", ethboot_usage, extended);
}
void qmx_vf_usage(int extended) { qmx_print_usage("fabric --stats 1/0", vf_usage, extended); }
void qmx_fcoe_usage(int extended) { qmx_print_usage("fcoe --stats 1/0", fcoe_usage, extended); }
void qmx_fcdiag_usage(int extended) {
    qmx_print_usage("fcdiag --fcping 1/0 <rpwwn>", fcdiag_usage, extended);
}
void qmx_flash_usage(int extended) { qmx_print_usage("flash --query 1", flash_usage, extended); }
void qmx_fruvpd_usage(int extended) {
    qmx_print_usage("fruvpd --read 1 0 16", fruvpd_usage, extended);
}
void qmx_ipfc_usage(int extended) { qmx_print_usage("ipfc --query 1/0", ipfc_usage, extended); }
void qmx_lport_usage(int extended) { qmx_print_usage("lport --list 1/0", lport_usage, extended); }
void qmx_log_usage(int extended) { qmx_print_usage("log --level 1/0", log_usage, extended); }
void qmx_mfg_usage(int extended) {
    qmx_print_usage("mfg --update 1 -m <card_model> -n 2 -s <serial_num>", mfg_usage, extended);
}
void qmx_pcifn_usage(int extended) { qmx_print_usage("pcifn --list 1", pcifn_usage, extended); }
void qmx_phy_usage(int extended) { qmx_print_usage("phy --query 1/0", phy_usage, extended); }
void qmx_port_usage(int extended) { qmx_print_usage("port --query 1/0", port_usage, extended); }
void qmx_qos_usage(int extended) { qmx_print_usage("qos --query 1/0", qos_usage, extended); }
void qmx_ratelim_usage(int extended) {
    qmx_print_usage("ratelim --query 1/0", ratelim_usage, extended);
}
void qmx_rport_usage(int extended) { qmx_print_usage("rport --list 1/0", rport_usage, extended); }
void qmx_trunk_usage(int extended) { qmx_print_usage("trunk --query 1", trunk_usage, extended); }
void qmx_vhba_usage(int extended) { qmx_print_usage("vhba --query 1/0/0", vhba_usage, extended); }
void qmx_vnic_usage(int extended) { qmx_print_usage("vnic --query 1/0/1", vnic_usage, extended); }
void qmx_vport_usage(int extended) {
    qmx_print_usage("vport --query 1/0 <vpwwn>", vport_usage, extended);
}
