// The registry: from the numbers of a request to an entry, and every refusal.
#include "ctrlsys.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <list>

#include "fatal.h"
#include "registry.h"

namespace {

// An entry that logs what reaches it.
class LoggedEntry : public CtrlReadWrite {
 public:
  LoggedEntry(unsigned int varid, unsigned int ind, std::string& l)
      : CtrlReadWrite(varid, ind), log(l) {}
  CTRL_DATA_TYPE getType() const override { return DATA_TYPE_INT; }
  void get(void* buf, unsigned int size) override { std::memset(buf, 'v', size); }
  void init() override { say("init"); }
  bool validate(const void*, unsigned int) const override { return say("validate") != 0 && valid; }
  int set(const void*, unsigned int) override { return say("set"); }
  int confirm() override {
    onConfirm();
    return say("confirm");
  }
  bool valid = true;
  std::function<void()> onConfirm = [] {};

 private:
  int say(const char* what) const {
    log += what + std::to_string(getVarID()) + "." + std::to_string(getIndex()) + " ";
    return 1;  // as a result of set or confirm, the registry does not act on it
  }
  std::string& log;
};

class RegistryTest : public testing::Test, public Registry {
 protected:
  using Entries = std::vector<CtrlReadWrite*>;

  ~RegistryTest() override { ctrlDoConfirm(); }  // the entries on the queue are about to go

  LoggedEntry* entry(unsigned int varid, unsigned int ind) {
    return &entries.emplace_back(varid, ind, log);
  }

  void family(unsigned int varid, unsigned int dim1, unsigned int dim2, const Entries& members) {
    families.push_back(members);
    ctrl_register_rw(varid, dim1, dim2, families.back().data());
  }

  int get(unsigned int varid, unsigned int varidx) {
    std::memset(buffer, '-', sizeof buffer);
    return ctrlDoGet(varid, varidx, 4, buffer);
  }

  // Runs a set and returns its code; what it printed is in `printed`.
  int set(unsigned int varid, unsigned int varidx, const std::string& data = "data") {
    testing::internal::CaptureStdout();
    const unsigned int size = static_cast<unsigned int>(data.size());
    const int code = ctrlDoValidateSet(varid, varidx, size == 0 ? nullptr : data.data(), size);
    printed = testing::internal::GetCapturedStdout();
    return code;
  }

  std::list<LoggedEntry> entries;
  std::list<Entries> families;
  std::string log;
  std::string printed;
  char buffer[5];
};

// Families of every small shape, every member and every index near them, against the definition:
// a request succeeds exactly for the index that a member was constructed with.
TEST_F(RegistryTest, EveryIndexReachesItsOwnMemberOrNone) {
  start({});
  unsigned int varid = 100;
  for (const unsigned int dim1 : {0U, 1U, 2U, 4U}) {
    for (const unsigned int dim2 : {0U, 1U, 3U}) {
      ++varid;
      Entries members;
      // The array's order is the first subscript times the second dimension plus the second. Of a
      // family of one, any index will do, as long as the request names the same.
      for (unsigned int place = 0; place < std::max(dim1 * dim2, 1U); ++place) {
        const unsigned int pair = dim2 > 1 ? place / dim2 | place % dim2 << 8 : place;
        members.push_back(entry(varid, dim1 * dim2 <= 1 ? 7 : dim1 > 1 ? pair : place));
      }
      family(varid, dim1, dim2, members);
      for (unsigned int i = 0; i < 2 * 6 * 16; ++i) {
        const unsigned int index = i / 96 << 16 | i / 16 % 6 << 8 | i % 16;
        const bool member = std::any_of(members.begin(), members.end(),
                                        [=](CtrlRead* m) { return m->getIndex() == index; });
        ASSERT_EQ(get(varid, index), member ? CTRL_ERR_SUCCESS : CTRL_ERR_PARAM)
            << dim1 << "x" << dim2 << " index " << index;
        ASSERT_EQ(std::string(buffer, 5), member ? "vvvv-" : "-----");
      }
    }
  }
}

TEST_F(RegistryTest, AGetPrefersTheReadFamilyAndASetNeverSeesIt) {
  CtrlRead* readArray[] = {nullptr};  // a hole reads as zeros
  start({entry(1, 0), entry(1, 1)}, {entry(2, 0), entry(3, 0)});
  EXPECT_EQ(log, "init2.0 init3.0 init1.0 init1.1 ") << "each once, those to read first";
  ctrl_register_read(9, 1, 1, readArray);
  EXPECT_EQ(ctrlDoGet(9, 0, 0, nullptr), CTRL_ERR_SUCCESS) << "no bytes of a hole";
  EXPECT_EQ(set(9, 0), CTRL_ERR_PARAM) << "read-only so far";
  family(9, 1, 1, {entry(9, 0)});
  EXPECT_EQ(get(9, 0), CTRL_ERR_SUCCESS);
  EXPECT_EQ(std::string(buffer, 5), std::string(4, '\0') + "-");
  EXPECT_EQ(set(9, 0), CTRL_ERR_SUCCESS);
}

TEST_F(RegistryTest, EachRefusalOfASetHasItsWords) {
  start({});
  LoggedEntry* const good = entry(5, 0);
  good->valid = false;
  // The last two have not the index of their place, and not the id.
  family(5, 4, 1, {good, nullptr, entry(5, 77), entry(4, 3)});
  const struct {
    unsigned int varid, varidx;
    std::string data, printed;
  } refusals[] = {{6, 2, "x", "varid not found\nWARNING:Can't find varid=6, varidx=2\n"},
                  {5, 4, "x", "subscript out of range rwn\nWARNING:Can't find varid=5, varidx=4\n"},
                  {5, 1, "x", "var null\nWARNING:Can't find varid=5, varidx=1\n"},
                  {5, 2, "x", "WARNING:Can't find varid=5, varidx=2\n"},
                  {5, 3, "x", "WARNING:Can't find varid=5, varidx=3\n"},
                  {5, 0, {"1234567\0beyond", 14}, "\nWARNING: Invalid length=14, data=1234567\n"},
                  {5, 0, "", "\nWARNING: Invalid length=0, data=\n"}};
  for (const auto& r : refusals) {
    EXPECT_EQ(set(r.varid, r.varidx, r.data), CTRL_ERR_PARAM);
    EXPECT_EQ(printed, r.printed);
  }
}

TEST_F(RegistryTest, SetsAreConfirmedInOrderAndAFullQueueRefusesWithoutATrace) {
  start({});
  LoggedEntry* const first = entry(5, 0);
  LoggedEntry* const second = entry(5, 1);
  family(5, 2, 1, {first, second});
  for (int round = 0; round < 2; ++round) {
    log.clear();
    second->valid = false;
    EXPECT_EQ(set(5, 1), CTRL_ERR_PARAM) << "not queued";
    second->valid = true;
    for (const unsigned int index : {0U, 1U, 1U, 0U}) {
      EXPECT_EQ(set(5, index), CTRL_ERR_SUCCESS);
    }
    EXPECT_EQ(set(5, 1), CTRL_ERR_NOBUFFER);
    EXPECT_EQ(ctrlDoConfirm() + ctrlDoConfirm(), CTRL_ERR_SUCCESS);
    EXPECT_EQ(log,
              "validate5.1 validate5.0 set5.0 validate5.1 set5.1 validate5.1 set5.1 validate5.0 "
              "set5.0 validate5.1 confirm5.0 confirm5.1 confirm5.1 confirm5.0 ");
  }
  log.clear();
  first->onConfirm = [&] { generic_set("x", 1, *second); };
  EXPECT_EQ(generic_set("x", 1, *first), 1);
  ctrlDoConfirm();
  EXPECT_EQ(log, "set5.0 set5.1 confirm5.0 confirm5.1 ") << "in the same pass";
}

TEST_F(RegistryTest, AConverterOfTheApplicationAddressesMoreDimensions) {
  const auto conv = [](unsigned int idx, const unsigned int* dim, unsigned int ndim) {
    return ndim == 3 ? (idx / 100 * dim[1] + idx / 10 % 10) * dim[2] + idx % 10 : 0xFFFFFFFF;
  };
  start({});
  Entries array;
  for (unsigned int i = 0; i < 24; ++i) {
    array.push_back(entry(5, i / 12 * 100 + i / 4 % 3 * 10 + i % 4));
  }
  unsigned int dims[] = {2, 3, 4};
  ctrl_register_rw(5, dims, 3, conv, array.data());
  dims[1] = dims[2] = 0;  // the registry has its copy
  EXPECT_EQ(ctrlGetRWEntry(5, 123), array[23]);
  EXPECT_EQ(ctrlGetRWEntry(5, 11), array[5]);
  EXPECT_EQ(get(5, 200), CTRL_ERR_PARAM);
  ctrl_register_rw(6, dims, 2, cmd_sts_idx_conv2D, array.data());
  EXPECT_EQ(get(6, 0), CTRL_ERR_PARAM) << "a dimension of 0 leaves no place";
}

using RegistryDeathTest = RegistryTest;

TEST_F(RegistryDeathTest, FaultsOfTheTablesAreFatal) {
  CtrlReadWrite* array[1] = {};
  const unsigned int dims[17] = {1};
  EXPECT_FATAL(ctrl_register_rw(7, 1, 1, array),
               "Control family 7:\nAssertion failed: tree != nullptr");
  EXPECT_FATAL(get(1, 5), "Control 1, index 5:\nAssertion failed: tree != nullptr");
  const auto init = [this](CtrlReadWrite** rw, CtrlRead** r, unsigned int size) {
    ctrl_sys_init(&rwTree, &readTree, rw, r, nullptr, size, nullptr, 0, nullptr, nullptr, nullptr,
                  nullptr, nullptr, nullptr);
  };
  CtrlRead* none[1] = {};
  EXPECT_FATAL(init(nullptr, none, 0), "rwArray != nullptr");
  EXPECT_FATAL(init(array, nullptr, 0), "rArray != nullptr");
  EXPECT_FATAL(init(array, none, 1), "confirmArray != nullptr");
  init(array, none, 0);  // without room for a set, but allowed
  start({});
  EXPECT_FATAL(ctrl_register_rw(1, dims, 17, cmd_sts_idx_conv1D, array), "ndim <= MAX_CTRL_DIMS");
  EXPECT_FATAL(ctrl_register_rw(1, dims, 1, nullptr, array), "conv != nullptr");
  EXPECT_FATAL(ctrl_register_rw(1, 1, 1, nullptr), "array != nullptr");
  EXPECT_FATAL(ctrl_register_rw(1, nullptr, 1, cmd_sts_idx_conv1D, array), "dim != nullptr");
  ctrl_register_rw(1, dims, 1, cmd_sts_idx_conv2D, array);
  EXPECT_FATAL(get(1, 8), "Control 1, index 8:\nAssertion failed: ndim == 2");
  EXPECT_FATAL(ctrl_register_rw(1, 1, 1, array), "Control family 1:\nAssertion failed: !duplicate");
  EXPECT_FATAL(cmd_sts_idx_conv0D(0, dims, 1), "ndim == 0");
  EXPECT_FATAL(cmd_sts_idx_conv1D(0, nullptr, 1), "dim != nullptr");
  EXPECT_FATAL(cmd_sts_idx_conv1D(0, dims, 2), "ndim == 1");
  EXPECT_FATAL(cmd_sts_idx_conv2D(0, nullptr, 2), "dim != nullptr");
  for (unsigned int i = 0; i < QUEUE; ++i) {
    generic_set("x", 1, *entry(5, i));
  }
  EXPECT_FATAL(generic_set("x", 1, *entry(5, 9)),
               "Control 5, index 9:\nAssertion failed: confirm_index < ctrlConfirmSize");
  EXPECT_STREQ(entry(4294967295U, 999)->getName(), "CV-4294967295-I-999") << "just fits";
  EXPECT_FATAL(entry(4294967295U, 1000),
               "Control 4294967295, index 1000:\nAssertion failed: length < ");
}

}  // namespace
