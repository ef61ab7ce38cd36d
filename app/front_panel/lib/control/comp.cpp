#include "comp.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "board.h"
#include "crc.h"
#include "hwt.h"

namespace {

constexpr unsigned short CRC_START = 0xFFFF;
// A header's CRC covers the high half of its own field.
constexpr std::size_t COMPONENT_CRC_BYTES = offsetof(component_t, crc) + 2;
constexpr std::size_t SUBCOMP_CRC_BYTES = offsetof(subcomp_t, crc) + 2;
// The watchdog is served at least once in this many bytes.
constexpr unsigned int WATCHDOG_BYTES = 100000;
// As the length of a buffer: the caller vouches for the file.
constexpr std::size_t WHOLE_FILE = SIZE_MAX;

const unsigned char* bytesAt(const void* header) {
  return static_cast<const unsigned char*>(header);
}

int compareCrc(const char* part, unsigned int computed, unsigned int stored) {
  if (computed != stored) {
    std::printf("%s CRC is $%04x but should be $%04x\n", part, computed, stored);
    return 0;
  }
  return 1;
}

int valid_component(const component_t* ch) {
  return compareCrc("component", calcCRC16(CRC_START, bytesAt(ch), COMPONENT_CRC_BYTES), ch->crc);
}

int valid_subcomp(const subcomp_t* sch) {
  return compareCrc("subcomponent", calcCRC16(CRC_START, bytesAt(sch), SUBCOMP_CRC_BYTES),
                    sch->crc);
}

int valid_data(const subcomp_t* sch) {
  unsigned short crc = CRC_START;
  const unsigned char* data = bytesAt(sch + 1);
  for (unsigned int size = sch->filesize; size != 0;) {
    const unsigned int chunk = std::min(size, WATCHDOG_BYTES);
    hwt_service();
    crc = calcCRC16(crc, data, chunk);
    data += chunk;
    size -= chunk;
  }
  return compareCrc("data", crc, sch->filecrc);
}

// The subcomponents of a component file whose header is there, in order. Nothing behind the end
// of the buffer is read: header() and dataFits() say what is inside.
class Subcomponents {
 public:
  Subcomponents(const component_t* ch, std::size_t size)
      : at(bytesAt(ch + 1)), left(size - sizeof *ch) {}

  // The next header, or null where it does not fit.
  const subcomp_t* header() const {
    return left < sizeof(subcomp_t) ? nullptr
                                    : static_cast<const subcomp_t*>(static_cast<const void*>(at));
  }

  bool dataFits(const subcomp_t* sch) const { return sch->filesize <= left - sizeof *sch; }

  // Goes on behind data that fit.
  void pass(const subcomp_t* sch) {
    at += sizeof *sch + sch->filesize;
    left -= sizeof *sch + sch->filesize;
  }

 private:
  const unsigned char* at;
  std::size_t left;
};

bool hasName(const subcomp_t* sch, const char* name) {
  return std::memchr(sch->filename, 0, sizeof sch->filename) != nullptr &&
         std::strcmp(sch->filename, name) == 0;
}

// Bytes of the boot flash from a slot on.
std::size_t roomIn(std::size_t slot) {
  return bootFlashSize() - std::min(slot, bootFlashSize());
}

// The component in a slot, or null in a flash that is too small for its header.
const component_t* componentIn(std::size_t slot) {
  return roomIn(slot) < sizeof(component_t)
             ? nullptr
             : static_cast<const component_t*>(static_cast<const void*>(bootFlash(slot)));
}

}  // namespace

unsigned int validate_bin_file(const void* bin_file) {
  return validate_bin_file(bin_file, WHOLE_FILE);
}

unsigned int validate_bin_file(const void* bin_file, std::size_t size) {
  const component_t* const ch = static_cast<const component_t*>(bin_file);
  if (ch == nullptr || size < sizeof *ch || !valid_component(ch)) {
    std::puts("Component header is invalid.");
    return 0;
  }
  Subcomponents rest(ch, size);
  for (int i = 0; i < ch->num_subcomps; ++i) {
    const subcomp_t* const sch = rest.header();
    if (sch == nullptr || !valid_subcomp(sch)) {
      std::printf("Subcomponent header %d is invalid.\n", i);
      return 0;
    }
    if (!rest.dataFits(sch) || !valid_data(sch)) {
      std::printf("Subcomponent data %d is invalid.\n", i);
      return 0;
    }
    rest.pass(sch);
  }
  return 1;
}

unsigned char* locate_file_in(const component_t* ch, const char* name, unsigned long* psize) {
  return locate_file_in(ch, WHOLE_FILE, name, psize);
}

unsigned char* locate_file_in(const component_t* ch, std::size_t size, const char* name,
                              unsigned long* psize) {
  if (ch == nullptr || size < sizeof *ch || !valid_component(ch)) {
    return nullptr;
  }
  Subcomponents rest(ch, size);
  for (int i = 0; i < ch->num_subcomps; ++i) {
    const subcomp_t* const sch = rest.header();
    if (sch == nullptr || !valid_subcomp(sch) || !rest.dataFits(sch)) {
      return nullptr;
    }
    if (hasName(sch, name) && valid_data(sch)) {
      if (psize != nullptr) {
        *psize = sch->filesize;
      }
      return const_cast<unsigned char*>(bytesAt(sch + 1));
    }
    rest.pass(sch);
  }
  return nullptr;
}

unsigned char* locate_file(const char* name, unsigned long* psize) {
  for (const std::size_t slot : BOOT_SLOTS) {
    unsigned char* const data = locate_file_in(componentIn(slot), roomIn(slot), name, psize);
    if (data != nullptr) {
      return data;
    }
  }
  return nullptr;
}

int getFlashDescriptor(bootFlashDesc_t* pDesc) {
  if (pDesc == nullptr) {
    return 1;
  }
  for (const std::size_t slot : BOOT_SLOTS) {
    const component_t* const ch = componentIn(slot);
    if (ch == nullptr || !valid_component(ch)) {
      continue;
    }
    static_assert(sizeof pDesc->productId == sizeof ch->product_id &&
                  sizeof pDesc->componentId == sizeof ch->component_id &&
                  sizeof pDesc->locationId == sizeof ch->location_id &&
                  sizeof pDesc->revString == sizeof ch->rev_string &&
                  sizeof pDesc->creationDate == sizeof ch->creation_date);
    std::memcpy(pDesc->productId, ch->product_id, sizeof ch->product_id);
    std::memcpy(pDesc->componentId, ch->component_id, sizeof ch->component_id);
    std::memcpy(pDesc->locationId, ch->location_id, sizeof ch->location_id);
    pDesc->majorRev = ch->major_rev;
    pDesc->minorRev = ch->minor_rev;
    std::memcpy(pDesc->revString, ch->rev_string, sizeof ch->rev_string);
    std::memcpy(pDesc->creationDate, ch->creation_date, sizeof ch->creation_date);
    pDesc->numFiles = ch->num_subcomps;
    return 0;
  }
  return 1;
}
