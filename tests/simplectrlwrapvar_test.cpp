// Self-registering families: from a declared object to a served control.
#include "simplectrlwrapvar.h"

#include <list>

#include "fatal.h"
#include "registry.h"
#include "simplevarmgr.h"

namespace {
std::size_t allocations = 0;
}

void* operator new(std::size_t size) {
  ++allocations;
  return std::malloc(size);
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};
const bounds_t GAPPED[] = {{0, 10}, {20, 30}, BOUNDS_END};

class Command : public SimpleCtrlCmd {
 public:
  using SimpleCtrlCmd::SimpleCtrlCmd;
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  int confirm() override {
    done.push_back(val);
    endSet();
    return 0;
  }
  std::vector<int> done;
};

class Device : public testing::Test, public Registry {
 protected:
  int set(unsigned int varid, unsigned int varidx, int value) {
    unsigned char buf[4];
    ReadVarMgr::setBufInt(buf, sizeof buf, value);
    return ctrlDoValidateSet(varid, varidx, buf, sizeof buf);
  }
  int get(unsigned int varid, unsigned int varidx) {
    unsigned char buf[4];
    EXPECT_EQ(ctrlDoGet(varid, varidx, sizeof buf, buf), CTRL_ERR_SUCCESS);
    return ReadWriteVarMgr::convert(buf, sizeof buf);
  }

  CtrlReadWrite* array[14] = {};
  bool first = true;
  RefreshMgr group;
};

// A 4 by 3 family in random declaration order, one place left out. Its requests do not allocate.
TEST_F(Device, AFamilyRegistersItselfWhateverTheOrderOfItsMembers) {
  const unsigned int dims[] = {4, 3};
  CtrlReadWrite* const other = reinterpret_cast<CtrlReadWrite*>(&first);
  std::fill(std::begin(array), std::end(array), other);
  int globals[12] = {};
  char text[9] = {};
  char work[9];
  ReadWriteVarMgrSimpleStr name(group, text, work, sizeof work, nullptr, "unit");
  std::list<ReadWriteVarMgrSimpleInt> vars;
  std::list<SimpleCtrlReadWriteVarMgr> members;
  std::vector<CtrlReadWrite*> table;
  for (unsigned int place : {7U, 0U, 11U, 3U, 4U, 10U, 1U, 2U, 6U, 9U, 8U}) {  // not 5
    vars.emplace_back(globals[place], group, static_cast<int>(place), PERCENT, RANGE_CLIP);
    ReadWriteVarMgr* const var = place == 8 ? static_cast<ReadWriteVarMgr*>(&name) : &vars.back();
    table.push_back(&members.emplace_back(40, place / 3 | place % 3 << 8, *var, first, array, 14,
                                          dims, 2, cmd_sts_idx_conv2D));
  }
  start(table);
  EXPECT_FALSE(first);
  EXPECT_EQ(array[12], other) << "only the family's part";
  EXPECT_EQ(array[5], nullptr);
  EXPECT_EQ(set(40, 0, 101), CTRL_ERR_PARAM);  // the first print takes standard output's buffer
  const std::size_t before = allocations;
  for (unsigned int place = 0; place < 12; ++place) {
    const unsigned int index = place / 3 | place % 3 << 8;
    const int value = place == 8 ? 0x726B0000 : static_cast<int>(60 + place);
    ASSERT_EQ(set(40, index, 101) == CTRL_ERR_PARAM, place != 8);
    ASSERT_EQ(set(40, index, value), place == 5 ? CTRL_ERR_PARAM : CTRL_ERR_SUCCESS);
    ASSERT_EQ(globals[place], 0) << "not before the confirm";
    ctrlDoConfirm();
    ASSERT_EQ(globals[place], place == 5 || place == 8 ? 0 : value);
    ASSERT_EQ(get(40, index), place == 5 ? 0 : value);
  }
  EXPECT_EQ(allocations, before);
  EXPECT_STREQ(text, "rk");
  globals[7] = 1;
  group.setRefresh();
  EXPECT_EQ(get(40, 0x0102), 1);
}

TEST_F(Device, AReadOnlyScalarAndACommandServeWithoutDimensions) {
  CtrlRead* readArray[1];
  bool readFirst = true;
  int global = 5;
  ReadWriteVarMgrSimpleInt var(global, group, 5, nullptr, RANGE_CLIP);
  SimpleCtrlReadVarMgr reading(1, 99, var, readFirst, readArray, 1, nullptr, 0, nullptr);
  Command command(2, 7, GAPPED, first, array, 1, nullptr, 0, nullptr, RANGE_WRAP);
  start({&command}, {&reading});
  EXPECT_EQ(get(1, 99), ReadWriteVarMgrInt::DEFAULT) << "neither seeded nor refreshed";
  EXPECT_EQ(reading.getType(), DATA_TYPE_INT);
  EXPECT_EQ(set(2, 7, 15), CTRL_ERR_PARAM) << "in the gap, whatever the policy";
  EXPECT_TRUE(!command.validate(nullptr, 4) && command.validate(nullptr, 0));
  command.confirm();
  EXPECT_EQ(set(2, 7, 25), CTRL_ERR_SUCCESS);
  EXPECT_EQ(set(2, 7, 3), CTRL_ERR_SUCCESS);
  EXPECT_EQ(get(2, 7), 0) << "a command reads as zeros";
  EXPECT_EQ(ctrlDoGet(2, 7, 0, nullptr), CTRL_ERR_SUCCESS);
  ctrlDoConfirm();
  command.set("\x1F", 1);
  command.confirm();
  EXPECT_EQ(command.done, (std::vector<int>{0, 3, 3, 0}))
      << "defined before the first set, then the last set; set follows the policy";
  unsigned int rows = 0;
  EXPECT_TRUE(command.getBounds(rows) == GAPPED && rows == 2);
}

using DeviceDeathTest = Device;

TEST_F(DeviceDeathTest, TablesThatDoNotFitTogetherAreFatal) {
  int global = 0;
  ReadWriteVarMgrSimpleInt var(global, group, 5, nullptr, RANGE_CLIP);
  const unsigned int dims[] = {4, 3, 2};
  const unsigned int empty[] = {4, 0};
  const auto member = [&](unsigned int idx, CtrlReadWrite** arr, unsigned int size,
                          const unsigned int* d, unsigned int nd) {
    return SimpleCtrlReadWriteVarMgr(1, idx, var, first, arr, size, d, nd, nullptr);
  };
  EXPECT_FATAL(member(0, nullptr, 12, dims, 2), "ctrlArr != nullptr");
  EXPECT_FATAL(member(0, array, 12, empty, 2), "ctrlArrSize > 0");
  EXPECT_FATAL(member(0, array, 11, dims, 2), "ctrlArrSize <= arrSize");
  EXPECT_FATAL(member(0, array, 24, dims, 3), "index 0:\nAssertion failed: conv != nullptr");
  EXPECT_FATAL(member(9, array, 12, nullptr, 2), "index 9:\nAssertion failed: numDim == 0 || all");
  EXPECT_FATAL(checkDims(empty, 2), "dim[i] != 0");
  EXPECT_FATAL(checkDims(nullptr, 1), "dim != nullptr");
  EXPECT_FATAL(checkConv(nullptr, 400), "conv != nullptr");
  SimpleCtrlReadWriteVarMgr good = member(0x0001, array, 12, dims, 2);
  SimpleCtrlReadWriteVarMgr samePlace = member(0x0300, array, 12, dims, 2);
  SimpleCtrlReadWriteVarMgr outside = member(0x0005, array, 12, dims, 2);
  start({&good});
  EXPECT_FATAL(samePlace.init(), "ctrlArr[i] == nullptr");
  EXPECT_FATAL(outside.init(), "i < ctrlArrSize");
}

}  // namespace
