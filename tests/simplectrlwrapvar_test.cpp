// Adapters and self-registering families: from a declared object to a served control.
#include "simplectrlwrapvar.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "allocations.h"
#include "fatal.h"
#include "simplevarmgr.h"

namespace {

const bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};
const bounds_t GAPPED[] = {{0, 10}, {20, 30}, BOUNDS_END};

// An integer variable that logs the calls of its adapter and refuses as told.
class LoggedVar : public ReadWriteVarMgrInt {
 public:
  LoggedVar() : ReadWriteVarMgrInt(GAPPED, RANGE_CLIP) {}
  void get(void* buf, unsigned int size) const override {
    log("get");
    ReadWriteVarMgrInt::get(buf, size);
  }
  bool refresh() override { return log("refresh"); }
  void init() override { log("init"); }
  bool startXaction() override { return log("start") && starts; }
  void endXaction() override { log("end"); }
  void set(const void* buf, unsigned int size) override {
    log("set");
    ReadWriteVarMgrInt::set(buf, size);
  }
  bool validate(const void* buf, unsigned int size) const override {
    log("validate");
    return ReadWriteVarMgrInt::validate(buf, size);
  }
  bool isConsistent() override { return log("consistent") && consistent; }
  void commit() const override { log("commit"); }
  bool starts = true;
  bool consistent = true;
  mutable std::string calls;

 private:
  bool log(const char* call) const {
    calls += std::string(call) + " ";
    return true;
  }
};

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

class Device : public testing::Test {
 protected:
  void start(std::vector<CtrlReadWrite*> rw, std::vector<CtrlRead*> read = {}) {
    rw.push_back(nullptr);
    read.push_back(nullptr);
    ctrl_sys_init(&rwTree, &readTree, rw.data(), read.data(), queue, 4, nullptr, 0, nullptr,
                  nullptr, nullptr, nullptr, nullptr, nullptr);
  }
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

  alignas(4) char rwPool[8 * (AVLTree::NODE_SIZE + sizeof(ReadWriteNode))];
  alignas(4) char readPool[8 * (AVLTree::NODE_SIZE + sizeof(ReadNode))];
  AVLTree rwTree{rwPool, sizeof rwPool, sizeof(ReadWriteNode)};
  AVLTree readTree{readPool, sizeof readPool, sizeof(ReadNode)};
  CtrlReadWrite* queue[4] = {};
};

TEST(Adapter, CallsItsManagerInOrderAndStopsAtARefusal) {
  LoggedVar var;
  CtrlReadWriteVarMgr entry(1, 0, var);
  unsigned char buf[4] = {0, 0, 0, 15};
  EXPECT_FALSE(entry.validate(buf, 4)) << "15 lies in the gap";
  EXPECT_EQ(entry.set(buf, 4), 0);
  EXPECT_EQ(var.ReadWriteVarMgrInt::get(), 20);
  EXPECT_EQ(entry.confirm(), 0);
  entry.get(buf, 4);
  entry.init();
  EXPECT_EQ(var.calls, "start refresh validate set consistent commit refresh get init ");
  var.calls.clear();
  var.starts = var.consistent = false;
  EXPECT_FALSE(entry.validate(buf, 4));
  EXPECT_EQ(entry.confirm(), 1);
  var.consistent = true;
  EXPECT_EQ(entry.confirm(), 0) << "a later confirm tries again";
  EXPECT_EQ(var.calls, "start consistent consistent commit ");

  var.calls.clear();
  CtrlReadVarMgr readOnly(2, 0, var);
  readOnly.init();
  readOnly.get(buf, 4);
  EXPECT_EQ(readOnly.getType(), DATA_TYPE_INT);
  EXPECT_EQ(var.calls, "get ") << "a read-only control neither seeds nor refreshes";
}

// A 4 by 3 family in random declaration order, one place left out.
TEST_F(Device, AFamilyRegistersItselfWhateverTheOrderOfItsMembers) {
  static const unsigned int dims[] = {4, 3};
  static CtrlReadWrite* array[14];
  static bool first = true;
  std::fill(std::begin(array), std::end(array), reinterpret_cast<CtrlReadWrite*>(&first));
  RefreshMgr group;
  std::vector<int> globals(12, 0);
  std::vector<std::unique_ptr<ReadWriteVarMgrSimpleInt>> vars;
  std::vector<std::unique_ptr<SimpleCtrlReadWriteVarMgr>> members;
  std::vector<CtrlReadWrite*> table;
  for (unsigned int place : {7U, 0U, 11U, 3U, 4U, 10U, 1U, 2U, 6U, 9U, 8U}) {  // not 5
    vars.push_back(std::make_unique<ReadWriteVarMgrSimpleInt>(
        globals[place], group, static_cast<int>(place), PERCENT, RANGE_CLIP));
    members.push_back(std::make_unique<SimpleCtrlReadWriteVarMgr>(
        40, place / 3 | place % 3 << 8, *vars.back(), first, array, 14, dims, 2, nullptr));
    table.push_back(members.back().get());
  }
  start(table);
  EXPECT_FALSE(first);
  EXPECT_EQ(array[12], reinterpret_cast<CtrlReadWrite*>(&first)) << "only the family's part";
  EXPECT_EQ(array[5], nullptr);
  EXPECT_EQ(array[7]->getIndex(), 0x0102U);
  for (unsigned int place = 0; place < 12; ++place) {
    const unsigned int index = place / 3 | place % 3 << 8;
    const int value = static_cast<int>(60 + place);
    EXPECT_EQ(set(40, index, value), place == 5 ? CTRL_ERR_PARAM : CTRL_ERR_SUCCESS);
    EXPECT_EQ(globals[place], 0) << "not before the confirm";
    ctrlDoConfirm();
    EXPECT_EQ(globals[place], place == 5 ? 0 : value);
    EXPECT_EQ(get(40, index), place == 5 ? 0 : value);
  }
  EXPECT_EQ(set(40, 0x0102, 101), CTRL_ERR_PARAM);
  EXPECT_EQ(globals[7], 67);
  globals[7] = 1;
  group.setRefresh();
  EXPECT_EQ(get(40, 0x0102), 1);
}

TEST_F(Device, AReadOnlyScalarAndACommandServeWithoutDimensions) {
  static CtrlRead* readArray[1];
  static CtrlReadWrite* cmdArray[1];
  static bool readFirst = true;
  static bool cmdFirst = true;
  LoggedVar var;
  SimpleCtrlReadVarMgr reading(1, 99, var, readFirst, readArray, 1, nullptr, 0, nullptr);
  Command command(2, 7, GAPPED, cmdFirst, cmdArray, 1, nullptr, 0, nullptr, RANGE_WRAP);
  start({&command}, {&reading});
  EXPECT_EQ(get(1, 99), ReadWriteVarMgrInt::DEFAULT);
  EXPECT_EQ(set(2, 7, 15), CTRL_ERR_PARAM) << "in the gap, whatever the policy";
  EXPECT_EQ(set(2, 7, 25), CTRL_ERR_SUCCESS);
  EXPECT_EQ(set(2, 7, 3), CTRL_ERR_SUCCESS);
  EXPECT_EQ(get(2, 7), 0) << "a command reads as zeros";
  ctrlDoConfirm();
  EXPECT_EQ(command.done, (std::vector<int>{3, 3})) << "both confirms see the last set";
  unsigned char over[4] = {0, 0, 0, 31};
  command.set(over, 4);
  command.confirm();
  EXPECT_EQ(command.done.back(), 0) << "set follows the policy";
  unsigned int rows = 0;
  EXPECT_EQ(command.getBounds(rows), GAPPED);
  EXPECT_EQ(rows, 2U);

  static CtrlReadWrite* freeArray[1];
  static bool freeFirst = true;
  Command unbounded(3, 0, nullptr, freeFirst, freeArray, 1, nullptr, 0, nullptr, RANGE_CLIP);
  unsigned char any[4] = {0x80, 0, 0, 0};
  EXPECT_TRUE(unbounded.validate(any, 4));
  unbounded.confirm();
  EXPECT_EQ(unbounded.done.back(), 0) << "a defined value before the first set";
}

TEST_F(Device, RequestsDoNotAllocate) {
  static const unsigned int dims[] = {2};
  static CtrlReadWrite* array[2];
  static bool first = true;
  RefreshMgr group;
  int global = 5;
  char text[9] = {};
  char work[9];
  ReadWriteVarMgrSimpleInt number(global, group, 5, PERCENT, RANGE_CLIP);
  ReadWriteVarMgrSimpleStr name(group, text, work, sizeof work, nullptr, "unit");
  SimpleCtrlReadWriteVarMgr a(1, 0, number, first, array, 2, dims, 1, nullptr);
  SimpleCtrlReadWriteVarMgr b(1, 1, name, first, array, 2, dims, 1, nullptr);
  start({&a, &b});
  set(1, 0, 101);  // the first print takes standard output's buffer
  const std::size_t before = allocationCount();
  for (int i = 0; i < 10; ++i) {
    char buf[9];
    ASSERT_EQ(set(1, 0, i), CTRL_ERR_SUCCESS);
    ASSERT_EQ(ctrlDoValidateSet(1, 1, "rack", 4), CTRL_ERR_SUCCESS);
    ctrlDoConfirm();
    ASSERT_EQ(ctrlDoGet(1, 1, sizeof buf, buf), CTRL_ERR_SUCCESS);
    ASSERT_STREQ(buf, "rack");
    ASSERT_EQ(set(1, 0, 101), CTRL_ERR_PARAM);
    ASSERT_EQ(set(1, 2, 1), CTRL_ERR_PARAM);
    ASSERT_EQ(set(2, 0, 1), CTRL_ERR_PARAM);
  }
  EXPECT_EQ(allocationCount(), before);
  EXPECT_EQ(global, 9);
}

using DeviceDeathTest = Device;

TEST_F(DeviceDeathTest, TablesThatDoNotFitTogetherAreFatal) {
  static CtrlReadWrite* array[12];
  static bool first = true;
  LoggedVar var;
  const unsigned int dims[] = {4, 3, 2};
  const unsigned int empty[] = {4, 0};
  auto member = [&](unsigned int idx, CtrlReadWrite** arr, unsigned int size, const unsigned int* d,
                    unsigned int nd) {
    return SimpleCtrlReadWriteVarMgr(1, idx, var, first, arr, size, d, nd, nullptr);
  };
  EXPECT_FATAL(member(0, nullptr, 12, dims, 2), "ctrlArr != nullptr");
  EXPECT_FATAL(member(0, array, 12, empty, 2), "ctrlArrSize > 0");
  EXPECT_FATAL(member(0, array, 11, dims, 2), "ctrlArrSize <= arrSize");
  EXPECT_FATAL(member(0, array, 24, dims, 3), "conv != nullptr");
  EXPECT_FATAL(member(0, array, 12, nullptr, 2), "allDim != nullptr");
  EXPECT_FATAL(checkDims(empty, 2), "dim[i] != 0");
  EXPECT_FATAL(checkDims(nullptr, 1), "dim != nullptr");
  EXPECT_FATAL(checkConv(nullptr, 400), "conv != nullptr");

  SimpleCtrlReadWriteVarMgr good = member(0x0001, array, 12, dims, 2);
  SimpleCtrlReadWriteVarMgr samePlace = member(0x0300, array, 12, dims, 2);
  SimpleCtrlReadWriteVarMgr outside = member(0x0005, array, 12, dims, 2);
  start({&good});
  EXPECT_FATAL(samePlace.init(), "ctrlArr[i] == nullptr");
  EXPECT_FATAL(outside.init(), "i < ctrlArrSize");
  EXPECT_FATAL(good.init(), "ctrlArr[i] == nullptr");
}

}  // namespace
