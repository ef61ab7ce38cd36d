// A program that links parameter flash operations of its own: the store uses them and no others.
#include <cstring>

#include "fatal.h"
#include "pflash.h"
#include "store_rig.h"

namespace {

NorArray content;
unsigned int flushes = 0;

}  // namespace

void pfInit() {}
unsigned int pfGetFlashOffset() {
  return 0;
}
unsigned int pfReadBlk(unsigned int addr, void* buf, unsigned int len) {
  content.read(addr, static_cast<unsigned char*>(buf), len);
  return addr + len;
}
unsigned int pfWriteWordNoWait(unsigned int addr, unsigned short word) {
  content.program(addr, word);
  return addr + 2;
}
bool pfIsWriteComplete() {
  return true;
}
void pfBlkEraseNoWait(unsigned int id) {
  content.erase(id);
}
bool pfIsEraseComplete() {
  return true;
}
bool pfIsBlkErased(unsigned int id) {
  return content.isErased(id);
}
void pfReset() {
  ++flushes;
}

namespace {

TEST(OwnOperations, HoldTheStore) {
  StoreRig rig;  // its simulated part stands behind operations that nobody calls
  rig.write(5, "kept");
  EXPECT_TRUE(rig.drain());
  EXPECT_EQ(flushes, 1U);
  rig.restart();
  EXPECT_EQ(rig.read(5), "kept");
  const PfSimMedium::Counters& count = rig.part.counters();
  EXPECT_EQ(count.words + count.erases + count.reads, 0U);
}

}  // namespace
