// The registry: from the numbers of a request to an entry, and every refusal.
#include "ctrlsys.h"

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fatal.h"
#include "random.h"

namespace {

// An entry that logs what reaches it.
class LoggedEntry : public CtrlReadWrite {
 public:
  LoggedEntry(unsigned int varid, unsigned int ind, std::string& l)
      : CtrlReadWrite(varid, ind), log(l) {}
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  void get(void* buf, unsigned int size) override { std::memset(buf, 'v', size); }
  void init() override { say("init"); }
  bool validate(const void*, unsigned int) const override {
    say("validate");
    return valid;
  }
  int set(const void*, unsigned int) override {
    say("set");
    return 1;  // the registry does not act on it
  }
  int confirm() override {
    say("confirm");
    if (onConfirm) {
      onConfirm();
    }
    return 1;  // nor on this
  }
  bool valid = true;
  std::function<void()> onConfirm;

 private:
  void say(const char* what) const {
    log += what + std::to_string(getVarID()) + "." + std::to_string(getIndex()) + " ";
  }
  std::string& log;
};

class Registry : public testing::Test {
 protected:
  static constexpr unsigned int QUEUE = 3;

  void start(std::vector<CtrlReadWrite*> rw = {}, std::vector<CtrlRead*> read = {}) {
    rw.push_back(nullptr);
    read.push_back(nullptr);
    ctrl_sys_init(&rwTree, &readTree, rw.data(), read.data(), queue, QUEUE, nullptr, 0, nullptr,
                  nullptr, nullptr, nullptr, nullptr, nullptr);
  }

  LoggedEntry* entry(unsigned int varid, unsigned int ind) {
    entries.push_back(std::make_unique<LoggedEntry>(varid, ind, log));
    return entries.back().get();
  }

  int get(unsigned int varid, unsigned int varidx) {
    std::memset(buffer, '-', sizeof buffer);
    return ctrlDoGet(varid, varidx, 4, buffer);
  }

  // Runs a set and returns its code; what it printed is in `printed`.
  int set(unsigned int varid, unsigned int varidx, const std::string& data = "data") {
    testing::internal::CaptureStdout();
    const int code =
        ctrlDoValidateSet(varid, varidx, data.data(), static_cast<unsigned int>(data.size()));
    std::fflush(stdout);
    printed = testing::internal::GetCapturedStdout();
    return code;
  }

  alignas(4) char rwPool[40 * (AVLTree::NODE_SIZE + sizeof(ReadWriteNode))];
  alignas(4) char readPool[8 * (AVLTree::NODE_SIZE + sizeof(ReadNode))];
  AVLTree rwTree{rwPool, sizeof rwPool, sizeof(ReadWriteNode)};
  AVLTree readTree{readPool, sizeof readPool, sizeof(ReadNode)};
  CtrlReadWrite* queue[QUEUE] = {};
  std::vector<std::unique_ptr<LoggedEntry>> entries;
  std::string log;
  std::string printed;
  char buffer[8];
};

TEST_F(Registry, InitRunsReadEntriesFirstAndOnceEach) {
  start({entry(1, 0), entry(1, 1)}, {entry(2, 0), entry(3, 0)});
  EXPECT_EQ(log, "init2.0 init3.0 init1.0 init1.1 ");
}

// Families of every small shape, every member and every index near them, against the definition:
// a request succeeds exactly for the index that a member was constructed with.
TEST_F(Registry, EveryIndexReachesItsOwnMemberOrNone) {
  start();
  unsigned int varid = 100;
  for (const unsigned int dim1 : {0U, 1U, 2U, 4U}) {
    for (const unsigned int dim2 : {0U, 1U, 3U}) {
      ++varid;
      const bool scalar = dim1 == 0 || dim2 == 0 || (dim1 == 1 && dim2 == 1);
      const bool two = dim1 > 1 && dim2 > 1;
      std::vector<unsigned int> members;
      if (scalar) {
        members = {7};  // any index will do, as long as the request names the same
      } else if (two) {
        for (unsigned int first = 0; first < dim1; ++first) {
          for (unsigned int second = 0; second < dim2; ++second) {
            members.push_back(first | second << 8);
          }
        }
      } else {
        for (unsigned int i = 0; i < dim1 * dim2; ++i) {
          members.push_back(i);
        }
      }
      // The array's order is the first subscript times the second dimension plus the second.
      static std::vector<std::vector<CtrlReadWrite*>> arrays(32);
      std::vector<CtrlReadWrite*>& array = arrays[varid - 100];
      for (const unsigned int index : members) {
        array.push_back(entry(varid, index));
      }
      ctrl_register_rw(varid, dim1, dim2, array.data());
      for (unsigned int high = 0; high < 2; ++high) {
        for (unsigned int second = 0; second < 6; ++second) {
          for (unsigned int first = 0; first < 16; ++first) {
            const unsigned int index = high << 16 | second << 8 | first;
            const bool member = std::find(members.begin(), members.end(), index) != members.end();
            ASSERT_EQ(get(varid, index), member ? CTRL_ERR_SUCCESS : CTRL_ERR_PARAM)
                << dim1 << "x" << dim2 << " index " << index;
            ASSERT_EQ(buffer[0], member ? 'v' : '-');
            ASSERT_EQ(buffer[4], '-');
          }
        }
      }
    }
  }
}

TEST_F(Registry, AGetPrefersTheReadFamilyAndASetNeverSeesIt) {
  start();
  static CtrlRead* readArray[1];
  static CtrlReadWrite* rwArray[1];
  readArray[0] = nullptr;  // a hole reads as zeros
  rwArray[0] = entry(9, 0);
  ctrl_register_read(9, 1, 1, readArray);
  EXPECT_EQ(ctrlDoGet(9, 0, 0, nullptr), CTRL_ERR_SUCCESS) << "no bytes of a hole";
  EXPECT_EQ(set(9, 0), CTRL_ERR_PARAM) << "read-only so far";
  ctrl_register_rw(9, 1, 1, rwArray);
  EXPECT_EQ(get(9, 0), CTRL_ERR_SUCCESS);
  EXPECT_EQ(std::string(buffer, 5), std::string(4, '\0') + "-");
  EXPECT_EQ(set(9, 0), CTRL_ERR_SUCCESS);
}

TEST_F(Registry, EachRefusalOfASetHasItsWords) {
  start();
  static CtrlReadWrite* array[3];
  LoggedEntry* const good = entry(5, 0);
  array[0] = good;
  array[1] = nullptr;
  array[2] = entry(5, 77);  // not the index of its place
  ctrl_register_rw(5, 3, 1, array);
  good->valid = false;
  const std::string data("1234567\0beyond", 14);
  struct {
    unsigned int varid, varidx;
    std::string data, printed;
  } const refusals[] = {
      {6, 2, "x", "varid not found\nWARNING:Can't find varid=6, varidx=2\n"},
      {5, 3, "x", "subscript out of range rwn\nWARNING:Can't find varid=5, varidx=3\n"},
      {5, 1, "x", "var null\nWARNING:Can't find varid=5, varidx=1\n"},
      {5, 2, "x", "WARNING:Can't find varid=5, varidx=2\n"},
      {5, 0, "ab", "\nWARNING: Invalid length=2, data=ab\n"},
      {5, 0, data, "\nWARNING: Invalid length=14, data=1234567\n"},
      {5, 0, "", "\nWARNING: Invalid length=0, data=\n"}};
  for (const auto& r : refusals) {
    // A copy of exact size: a byte read behind it is a fault that the sanitizer sees.
    const std::vector<char> exact(r.data.begin(), r.data.end());
    testing::internal::CaptureStdout();
    EXPECT_EQ(
        ctrlDoValidateSet(r.varid, r.varidx, exact.data(), static_cast<unsigned int>(exact.size())),
        CTRL_ERR_PARAM);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), r.printed);
  }
  log.clear();
  ctrlDoConfirm();
  EXPECT_EQ(log, "") << "nothing refused was queued";
}

TEST_F(Registry, SetsAreConfirmedInOrderAndAFullQueueRefusesWithoutATrace) {
  start();
  static CtrlReadWrite* array[2];
  array[0] = entry(5, 0);
  LoggedEntry* const second = entry(5, 1);
  array[1] = second;
  ctrl_register_rw(5, 2, 1, array);
  for (int round = 0; round < 2; ++round) {
    log.clear();
    EXPECT_EQ(set(5, 0), CTRL_ERR_SUCCESS);
    second->valid = false;
    EXPECT_EQ(set(5, 1), CTRL_ERR_PARAM);
    second->valid = true;
    EXPECT_EQ(set(5, 1), CTRL_ERR_SUCCESS);
    EXPECT_EQ(set(5, 0), CTRL_ERR_SUCCESS);
    EXPECT_EQ(log, "validate5.0 set5.0 validate5.1 validate5.1 set5.1 validate5.0 set5.0 ");
    log.clear();
    EXPECT_EQ(set(5, 1), CTRL_ERR_NOBUFFER);
    EXPECT_EQ(log, "validate5.1 ");
    log.clear();
    EXPECT_EQ(ctrlDoConfirm(), CTRL_ERR_SUCCESS);
    EXPECT_EQ(log, "confirm5.0 confirm5.1 confirm5.0 ");
  }
  log.clear();
  EXPECT_EQ(ctrlDoConfirm(), CTRL_ERR_SUCCESS);
  EXPECT_EQ(log, "");
}

TEST_F(Registry, AnEntryQueuedByAConfirmIsConfirmedInTheSamePass) {
  start();
  LoggedEntry* const second = entry(5, 1);
  LoggedEntry* const first = entry(5, 0);
  first->onConfirm = [&] { EXPECT_EQ(generic_set("x", 1, *second), 1); };
  generic_set("x", 1, *first);
  log.clear();
  ctrlDoConfirm();
  EXPECT_EQ(log, "confirm5.0 set5.1 confirm5.1 ");
}

unsigned int threeDimensions(unsigned int idx, const unsigned int* dim, unsigned int ndim) {
  return ndim == 3 ? (idx / 100 * dim[1] + idx / 10 % 10) * dim[2] + idx % 10 : 0xFFFFFFFF;
}

TEST_F(Registry, AConverterOfTheApplicationAddressesMoreDimensions) {
  start();
  static CtrlReadWrite* array[24];
  for (unsigned int i = 0; i < 24; ++i) {
    array[i] = entry(5, i / 12 * 100 + i / 4 % 3 * 10 + i % 4);
  }
  unsigned int dims[] = {2, 3, 4};
  ctrl_register_rw(5, dims, 3, threeDimensions, array);
  const unsigned int empty[] = {2, 0};
  ctrl_register_rw(6, empty, 2, cmd_sts_idx_conv2D, array);
  dims[1] = dims[2] = 0;  // the registry has its copy
  EXPECT_EQ(ctrlGetRWEntry(5, 123), array[23]);
  EXPECT_EQ(ctrlGetRWEntry(5, 11), array[5]);
  EXPECT_EQ(get(5, 200), CTRL_ERR_PARAM);
  EXPECT_EQ(get(6, 0), CTRL_ERR_PARAM) << "a dimension of 0 leaves no place";
}

using RegistryDeathTest = Registry;

TEST_F(RegistryDeathTest, FaultsOfTheTablesAreFatal) {
  static CtrlReadWrite* array[1] = {};
  const unsigned int dims[17] = {1};
  EXPECT_FATAL(ctrl_register_rw(1, 1, 1, array), "tree != nullptr");
  EXPECT_FATAL(get(1, 0), "tree != nullptr");
  start();
  EXPECT_FATAL(ctrl_register_rw(1, dims, 17, cmd_sts_idx_conv1D, array), "ndim <= MAX_CTRL_DIMS");
  EXPECT_FATAL(ctrl_register_rw(1, dims, 1, nullptr, array), "conv != nullptr");
  EXPECT_FATAL(ctrl_register_rw(1, 1, 1, nullptr), "array != nullptr");
  EXPECT_FATAL(ctrl_register_rw(1, nullptr, 1, cmd_sts_idx_conv1D, array), "dim != nullptr");
  ctrl_register_rw(1, dims, 1, cmd_sts_idx_conv2D, array);
  EXPECT_FATAL(get(1, 0), "ndim == 2");
  EXPECT_FATAL(ctrl_register_rw(1, 1, 1, array), "duplicate");
  EXPECT_FATAL(cmd_sts_idx_conv0D(0, dims, 1), "ndim == 0");
  EXPECT_FATAL(cmd_sts_idx_conv1D(0, nullptr, 1), "dim != nullptr");
  for (unsigned int i = 0; i < QUEUE; ++i) {
    generic_set("x", 1, *entry(5, i));
  }
  EXPECT_FATAL(generic_set("x", 1, *entry(5, 9)), "confirm_index < ctrlConfirmSize");
}

TEST(EntryName, IsTheKeyOfThePresetFileAndHasToFit) {
  std::string log;
  EXPECT_STREQ(LoggedEntry(0, 0, log).getName(), "CV-0-I-0");
  EXPECT_STREQ(LoggedEntry(1234, 258, log).getName(), "CV-1234-I-258");
  EXPECT_STREQ(LoggedEntry(4294967295U, 999, log).getName(), "CV-4294967295-I-999");
  EXPECT_FATAL(LoggedEntry(4294967295U, 1000, log), "length < ");
}

}  // namespace
