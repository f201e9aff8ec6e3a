#pragma once
// The boot code package: a ustar archive whose first member "boot.txt" describes, per card
// type, which member goes into which flash partition. These are the library's own pieces of
// the update (kvol_boot_fwupdate in kvol.h is the entry); they are declared here so the unit
// tests can reach them.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kvol.h"

constexpr size_t KVOL_TAR_BLOCK = 512;
constexpr size_t KVOL_BOOT_NAME_LEN = 100;
constexpr size_t KVOL_BOOT_LINE_MAX = 512;  // boot.txt lines are read in pieces of at most 511
constexpr size_t KVOL_BOOT_VER_LEN = 12;    // the firmware version text captured from the ROM

// One archive member, read whole.
struct kvol_imagefile_data_s {
    char iname[KVOL_BOOT_NAME_LEN];  // member name, always terminated
    std::vector<uint8_t> ibuf;
    int isize;
    bool ialloc;
};
typedef kvol_imagefile_data_s IMAGEFILE_DATA_T;

// One card block of boot.txt. Each name is an archive member, empty when the slot is absent.
struct kvol_card_data_s {
    uint32_t card_type;
    char firmware_name[KVOL_BOOT_NAME_LEN];
    char option_rom_name[KVOL_BOOT_NAME_LEN];
    char option_rom_2_name[KVOL_BOOT_NAME_LEN];
    char boot_overlay_name[KVOL_BOOT_NAME_LEN];
    char pxe_overlay_name[KVOL_BOOT_NAME_LEN];
    char fw_config_name[KVOL_BOOT_NAME_LEN];
    char asic_block_name[KVOL_BOOT_NAME_LEN];
    std::vector<uint8_t> port;  // firmware configuration instances to write
    int portcnt;
};
typedef kvol_card_data_s CARD_DATA_T;

// An opened package: the file to read the members from and, for a package wrapped as the
// first member of an outer archive, the temporary file it was unpacked into. Closing removes
// the temporary file.
struct kvol_boot_file {
    FILE* fp = nullptr;
    std::string tmp;
    kvol_boot_file() = default;
    kvol_boot_file(const kvol_boot_file&) = delete;
    kvol_boot_file& operator=(const kvol_boot_file&) = delete;
    ~kvol_boot_file() { close(); }
    void close();
};

// Opens the package at path: checks the ustar header, unwraps a package held as the first
// member, and checks the first member's MD5 against the "<hash>" text of the second.
// KVO_STATUS_OK, KVO_STATUS_EFOPEN, KVO_STATUS_BAD_FILE, KVO_STATUS_CREATE_FILE or
// KVO_STATUS_ENOMEM; on failure nothing stays open and no temporary file is left.
kvo_status_t kvol_check_file_contains_tar(const char* path, kvol_boot_file& out);

// Reads every member of the package and the card blocks of its boot.txt.
// KVO_STATUS_OK, KVO_STATUS_BAD_FILE, KVO_STATUS_BOOT_VERSION, KVO_STATUS_FAILED (boot.txt
// does not parse) or KVO_STATUS_ENOMEM.
kvo_status_t kvol_populate_flash_data(FILE* fp, std::vector<IMAGEFILE_DATA_T>& images,
                                      std::vector<CARD_DATA_T>& cards);

// The number of members of the archive in data, or -1 (KVO_STATUS_BAD_FILE) when it is not a
// sound ustar archive.
int kvol_count_images(const std::vector<uint8_t>& data);
// Reads the members of the archive in data; KVO_STATUS_OK or KVO_STATUS_BAD_FILE.
kvo_status_t kvol_read_boot_image(const std::vector<uint8_t>& data,
                                  std::vector<IMAGEFILE_DATA_T>& images);
// The first line of boot.txt must be "Version=3.0.0.0": KVO_STATUS_OK, KVO_STATUS_BOOT_VERSION
// for another version, KVO_STATUS_BAD_FILE when there is no such line.
kvo_status_t kvol_check_boot_code_version(const IMAGEFILE_DATA_T& boot_txt);
// Parses the card blocks of boot.txt; KVO_STATUS_OK or KVO_STATUS_FAILED.
kvo_status_t kvol_populate_card_data(const uint8_t* text, size_t len,
                                     std::vector<CARD_DATA_T>& cards);

// Fixes up a chain of PCI expansion ROM images for the card's device id: device ids, the PnP
// header checksum and each image's checksum. With first set, the first call of the process
// captures the firmware version of the x86 image into version (12 characters).
// KVO_STATUS_OK, or KVO_STATUS_BAD_BOOT_CODE when the chain leaves the buffer.
kvo_status_t kvol_update_device_id_chksum(uint8_t* buf, size_t len, uint16_t devid, int first,
                                          char (&version)[KVOL_BOOT_VER_LEN + 1]);
// Reverses the bytes of every whole 32-bit word of buf (the flash keeps the ROM word-swapped).
void kvol_swap32_words(uint8_t* buf, size_t len);

// Writes the members named by the card block of card_type into the flash of the adapter of
// ioc, then enables the option ROM. The first failing request's status, or
// KVO_STATUS_BOOT_UPDATE_PORT1, KVO_STATUS_CARDTYPE_MISSING, KVO_STATUS_BAD_BOOT_CODE.
kvo_status_t kvol_boot_flash_data(kvol_t* ioc, uint16_t devid, uint32_t card_type,
                                  const std::vector<IMAGEFILE_DATA_T>& images,
                                  const std::vector<CARD_DATA_T>& cards);

// Updates every adapter of the scan, one thread each. KVO_STATUS_OK, or KVO_STATUS_FAILED
// with more adapters than KVOL_BOOT_MAX_ADAPTERS; per adapter, statuses[i] and bit i of *mask.
kvo_status_t kvol_update_adapter_thread(uint16_t* mask,
                                        kvo_status_t (&statuses)[KVOL_BOOT_MAX_ADAPTERS],
                                        const std::vector<IMAGEFILE_DATA_T>& images,
                                        const std::vector<CARD_DATA_T>& cards);

// Puts the firmware version into the "V1" keyword of the VPD's read-only section and
// recomputes its "RV" checksum; false (buffer untouched) when the VPD has no well-formed
// read-only section.
bool kvol_vpd_set_fw_version(uint8_t* vpd, size_t len, const char* version, size_t vlen);
// Rewrites the VPD partition for the card types that keep the firmware version in it.
// KVO_STATUS_OK (nothing to do for other card types) or the failing request's status.
kvo_status_t kvol_boot_vpd_update(kvol_t* ioc, uint32_t card_type,
                                  const char (&version)[KVOL_BOOT_VER_LEN + 1]);
