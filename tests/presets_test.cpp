// The preset file: restore and fallback at start-up, and the thread that saves and copies.
//
// The thread's sleep is replaced by one that waits for the test, and the test drives the tick
// counter, so the thread runs pass by pass and no time goes by.
#include "presets.h"

#include <semaphore.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "fatal.h"
#include "iofault.h"
#include "random.h"
#include "simplevarmgr.h"
#include "tempdir.h"

namespace {

sem_t passBegins;
sem_t passEnded;
std::function<void()> sleepInstead;  // set before the thread starts

void waitFor(sem_t& semaphore) {
  timespec limit;
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += 30;
  int result;
  while ((result = sem_timedwait(&semaphore, &limit)) != 0 && errno == EINTR) {
  }
  ASSERT_EQ(result, 0) << "the preset thread does not go on";
}

}  // namespace

extern "C" unsigned int sleep(unsigned int) {
  if (sleepInstead) {
    sleepInstead();
    return 0;
  }
  sem_post(&passEnded);
  while (sem_wait(&passBegins) != 0) {
  }
  return 0;
}

namespace {

using eternity::archive;

// A control that notes what is done to it. Like a text manager it takes a set of no bytes as none.
class Control : public CtrlReadWrite {
 public:
  Control(unsigned int id, unsigned int ind, int value)
      : CtrlReadWrite(id, ind), type(DATA_TYPE_INT), number(value) {}
  Control(unsigned int id, unsigned int ind, const char* value)
      : CtrlReadWrite(id, ind), type(DATA_TYPE_STRING), text(value) {}

  CTRL_DATA_TYPE getType() const override { return type; }
  void init() override { calls += 'i'; }
  bool validate(const void*, unsigned int) const override { return false; }
  int confirm() override { return static_cast<int>((calls += 'c').size()); }
  void get(void* buf, unsigned int size) override {
    onGet();
    if (type == DATA_TYPE_STRING) {
      ReadVarMgr::setBufStr(buf, size, text.c_str(), false);
    } else {
      ReadVarMgr::setBufInt(buf, size, number);
    }
  }
  int set(const void* buf, unsigned int size) override {
    calls += 's';
    onSet();
    if (type != DATA_TYPE_STRING) {
      EXPECT_EQ(size, 4U);
      number = ReadWriteVarMgr::convert(buf, size);
    } else if (size > 0) {
      text.assign(static_cast<const char*>(buf), size);
    }
    return 1;
  }

  CTRL_DATA_TYPE type;
  int number = 0;
  std::string text;
  std::string calls;
  std::function<void()> onGet = [] {};
  std::function<void()> onSet = [] {};
};

constexpr char XML[] = "presets.xml";
constexpr char START[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<archive>\n";

std::string fileOf(int level, int offset, const std::string& name) {
  return START + ("<CV-1234-I-0>" + std::to_string(level) + "</CV-1234-I-0>\n<CV-1234-I-1>" +
                  std::to_string(offset) + "</CV-1234-I-1>\n<CV-90-I-0>" + name +
                  "</CV-90-I-0>\n</archive>\n");
}

class PresetTest : public testing::Test {
 protected:
  PresetTest() {
    for (sem_t* semaphore : {&passBegins, &passEnded, &reached}) {
      sem_init(semaphore, 0, 0);
    }
    Timer::sysTime = 1000;
  }
  ~PresetTest() override {
    iofault::heal();
    Preset::Instance()->Stop();
  }

  // Runs initPresets; what it prints, less the lines that every start prints.
  std::string start(preset_bk_func_t copy = nullptr) {
    Preset::Instance()->Stop();
    testing::internal::CaptureStdout();
    initPresets(table.data(), copy);
    waitFor(passEnded);
    const std::string out = testing::internal::GetCapturedStdout();
    return out.substr(out.find("Open and restore"));
  }

  // One pass of the thread, `ticks` later; what it prints. Its file operation `failAt` fails.
  std::string pass(unsigned int ticks, int failAt = INT_MAX, bool forEver = false) {
    testing::internal::CaptureStdout();
    Timer::sysTime += ticks;
    iofault::failFrom(failAt, forEver);
    sem_post(&passBegins);
    waitFor(passEnded);
    faultsLeft = iofault::faultsLeft();
    iofault::heal();
    return testing::internal::GetCapturedStdout();
  }

  // Lets the thread begin a pass that saves, and waits until a get has posted `reached`.
  void beginSave() {
    Preset::Instance()->Set_need_save();
    Timer::sysTime += 10000;
    sem_post(&passBegins);
    waitFor(reached);
  }

  std::string save(int failAt = INT_MAX, bool forEver = false) {
    Preset::Instance()->Set_need_save();
    return pass(10000, failAt, forEver);
  }

  TempDir dir;
  Control level{1234, 0, 42};
  Control offset{1234, 1, -3};
  Control name{90, 0, "Unit 1"};
  std::vector<CtrlReadWrite*> table = {&level, &offset, &name, nullptr};
  sem_t reached;
  bool faultsLeft = false;  // the operation that should fail in the last pass did not come
};

constexpr char SAVED[] = "Save presets to:presets.xml\n";
constexpr char FAILED[] = "Error while writing to preset file:presets.xml\n";

TEST_F(PresetTest, AMissingOrDamagedFileIsWrittenFromTheControls) {
  EXPECT_EQ(start(),
            "Open and restore from:presets.xml\n"
            "Exception catched: cannot open presets.xml: No such file or directory\n"
            "Open and save to:presets.xml\n"
            "Starting the Preset thread\n");
  EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
  EXPECT_FALSE(std::filesystem::exists("presets.xml.damaged-1"));
  const std::string half = fileOf(1, 2, "three").substr(0, 80);
  writeWhole(XML, half);
  EXPECT_THAT(start(), testing::HasSubstr("no end, line 3\nDamaged preset file kept as:"
                                          "presets.xml.damaged-1\nOpen and save to:"));
  EXPECT_EQ(readWhole("presets.xml.damaged-1"), half);
  EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
  EXPECT_EQ(level.calls + offset.calls + name.calls, "cccccc");
}

TEST_F(PresetTest, AGoodFileIsRestoredAndNotRewritten) {
  // Another order, an unknown element, and one element missing, one that is no number.
  const std::string file = START + ("<CV-90-I-0> R&D " + std::string(2000, 'x')) +
                           "</CV-90-I-0>\n<CV-5-I-5>1</CV-5-I-5>\n"
                           "<CV-1234-I-0>-2147483648</CV-1234-I-0>\n"
                           "<CV-7-I-0>on</CV-7-I-0>\n</archive>\n";
  Control flag(7, 0, 1);
  flag.type = DATA_TYPE_BOOL;
  table.insert(table.begin() + 2, &flag);
  writeWhole(XML, file);
  EXPECT_EQ(start(),
            "Open and restore from:presets.xml\n"
            "Exception catched: no element CV-1234-I-1\n"
            "Exception catched: the element CV-7-I-0 is no number\n"
            "\nPreset Dump...\nStarting the Preset thread\n");
  EXPECT_EQ(level.number, -2147483647 - 1);
  EXPECT_EQ(name.text, " R&D " + std::string(2000, 'x'));
  EXPECT_EQ(level.calls + " " + name.calls, "sc sc");
  EXPECT_EQ(offset.calls + flag.calls, "") << "a control without an element keeps its value";
  EXPECT_EQ(readWhole(XML), file);
  EXPECT_EQ(save(), SAVED);
  EXPECT_EQ(readWhole(XML), START + ("<CV-1234-I-0>-2147483648</CV-1234-I-0>\n"
                                     "<CV-1234-I-1>-3</CV-1234-I-1>\n<CV-7-I-0>1</CV-7-I-0>\n"
                                     "<CV-90-I-0> R&amp;D " +
                                     std::string(1023 - 5, 'x') + "</CV-90-I-0>\n</archive>\n"));
}

// Whatever else than a reading error ends a restore: the file is written anew, nothing confirmed.
TEST_F(PresetTest, AnyOtherExceptionInARestoreAlsoFallsBack) {
  const std::function<void()> faults[] = {[] { throw 1; },
                                          [] { throw new eternity::exception("by pointer"); }};
  int round = 0;
  for (const auto& fault : faults) {
    writeWhole(XML, fileOf(1, 2, "three"));
    level.onSet = fault;
    EXPECT_EQ(start(),
              "Open and restore from:presets.xml\n"
              "Exception openning xml file: presets.xml\n"
              "Damaged preset file kept as:presets.xml.damaged-" +
                  std::to_string(++round) +
                  "\nOpen and save to:presets.xml\nStarting the Preset thread\n");
    EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
  }
  EXPECT_EQ(level.calls + offset.calls, "ss");
  // By value from a control: that control is passed over.
  level.onSet = [] { throw eternity::exception("by value"); };
  writeWhole(XML, fileOf(1, 2, "three"));
  EXPECT_THAT(start(), testing::HasSubstr("Exception catched: by value\n\nPreset Dump"));
  EXPECT_EQ(offset.number, 2);
}

TEST_F(PresetTest, AFallbackThatFailsReachesTheCallerAndStartsNoThread) {
  std::filesystem::create_directory(XML);
  EXPECT_THROW(initPresets(table.data(), nullptr), eternity::exception) << "no regular file";
  std::filesystem::remove(XML);
  int n = 1;
  for (bool complete = false; !complete && n < 40; ++n) {
    iofault::failFrom(n, true);
    try {
      initPresets(table.data(), nullptr);
      waitFor(passEnded);
      complete = iofault::faultsLeft();
      EXPECT_TRUE(complete) << "the failure of operation " << n << " was dropped";
    } catch (const eternity::exception&) {
      iofault::heal();
      EXPECT_NE(sem_trywait(&passEnded), 0) << "no thread runs";
      EXPECT_FALSE(std::filesystem::exists("presets.xml.tmp"));
      std::filesystem::remove(XML);
    }
  }
  EXPECT_GT(n, 9) << "a save has more operations";
}

TEST_F(PresetTest, AnEmptyTableStartsNothing) {
  CtrlReadWrite* none[] = {nullptr};
  initPresets(nullptr, nullptr);
  initPresets(none, nullptr);
  EXPECT_FALSE(std::filesystem::exists(XML));
  eternity::xml_archive xml;
  EXPECT_FATAL(Preset::Instance()->Init(nullptr), "rwp != nullptr");
  EXPECT_FATAL(Preset::Instance()->xml_serialize(xml), "m_rwp != nullptr");
}

// The saves, copies and messages of some hundred passes against a model with 64-bit time.
struct Model {
  std::string save(bool fails, bool markedMeanwhile) {
    dirty = fails || markedMeanwhile;
    copyDue = copyDue || !fails;
    return fails ? std::string(SAVED) + FAILED : SAVED;
  }

  std::string pass(bool fails, bool markedMeanwhile) {
    if (dirty && elapsed(last) >= 10000) {
      last = now;
      return save(fails, markedMeanwhile);
    }
    if (elapsed(lastCopy) < 100000) {
      return "";
    }
    lastCopy = now;
    return !hasCopy ? "my_back_func is NULL\n" : std::exchange(copyDue, false) ? "copy\n" : "";
  }

  // The difference that the counter shows: one tick less across a wrap.
  unsigned long long elapsed(unsigned long long since) const {
    return now - since - (now >> 32 == since >> 32 ? 0 : 1);
  }

  unsigned long long now = 0xFFFFFFFFULL - 4000000;
  unsigned long long last = now;
  unsigned long long lastCopy = now;
  bool dirty = false;
  bool hasCopy = false;
  bool copyDue = false;
};

TEST_F(PresetTest, SavesAndCopiesFollowTheModel) {
  Random random(4);
  const unsigned int steps[] = {0, 1, 1000, 4999, 5000, 9999, 10000, 10001, 60000, 99999, 100000};
  Model model;
  Timer::sysTime = static_cast<unsigned int>(model.now);
  start();
  bool fails = false;
  bool marks = false;
  name.onGet = [&] {  // the walk has passed the level
    if (marks) {
      ++level.number;
      Preset::Instance()->Set_need_save();
    }
    if (fails && random.oneIn(2)) {
      throw eternity::exception("by value");
    }
    fails ? throw new eternity::exception("by pointer") : 0;
  };
  for (int i = 0; i < 400; ++i) {
    if (random.oneIn(3)) {
      Preset::Instance()->Set_need_save();
      model.dirty = true;
    }
    if (i == 100) {
      marks = fails = false;
      // A second start gives it a copy function; a null one keeps that.
      start([] { std::puts("copy"); });
      start();
      model.last = model.lastCopy = model.now;
      model.hasCopy = true;
    }
    fails = random.oneIn(4);
    marks = random.oneIn(4);
    level.number = i;
    const unsigned int step = steps[random.below(std::size(steps))];
    const std::string before = readWhole(XML);
    std::string expected;
    if (random.oneIn(8)) {
      expected = model.save(fails, marks);
      ASSERT_EQ(Preset::Instance()->Save_now(), !fails) << i;
    } else {
      model.now += step;
      expected = model.pass(fails, marks);
      ASSERT_EQ(pass(step), expected) << i;
    }
    EXPECT_EQ(Preset::Instance()->Need_save(), model.dirty) << i;
    EXPECT_EQ(readWhole(XML), expected == SAVED ? fileOf(i, -3, "Unit 1") : before) << i;
  }
  EXPECT_GT(model.now, 1ULL << 32);
}

TEST_F(PresetTest, EveryFailingOperationOfASaveKeepsTheMarkAndAFile) {
  start([] {});
  for (const bool forEver : {false, true}) {
    bool complete = false;
    for (int n = 1; !complete; ++n) {
      ASSERT_LT(n, 40);
      const std::string old = readWhole(XML);
      const std::string fresh = fileOf(++level.number, -3, "Unit 1");
      const bool failed = save(n, forEver).find(FAILED) != std::string::npos;
      complete = faultsLeft;
      ASSERT_EQ(failed, !complete) << "operation " << n;
      const std::string now = readWhole(XML);
      EXPECT_TRUE(now == fresh || (failed && now == old)) << now;
      EXPECT_FALSE(std::filesystem::exists("presets.xml.tmp"));
      if (failed) {
        EXPECT_EQ(pass(9999), "") << "the period counts from the failed attempt";
        EXPECT_EQ(pass(1), SAVED) << "the mark is kept";
        EXPECT_EQ(readWhole(XML), fresh);
      }
    }
  }
}

// One save after the other: they would write one temporary file.
TEST_F(PresetTest, SavesAtOnceBesideASaveOfTheThread) {
  start();
  const pthread_t self = pthread_self();
  name.onGet = [this, self] {
    if (pthread_equal(pthread_self(), self) == 0) {
      sem_post(&reached);
      usleep(20000);
      EXPECT_EQ(readWhole("presets.xml.tmp").find("</archive>"), std::string::npos);
    }
  };
  beginSave();
  level.number = 2;
  EXPECT_TRUE(Preset::Instance()->Save_now());
  EXPECT_EQ(readWhole(XML), fileOf(2, -3, "Unit 1"));
  Preset::Instance()->Stop();
  EXPECT_FALSE(Preset::Instance()->Need_save()) << "neither spoilt the other";
}

TEST_F(PresetTest, StopLetsASaveFinish) {
  start();
  level.number = 7;
  name.onGet = [this] {
    sem_post(&reached);
    usleep(50000);  // a cancellation point, had it not been held off
    pthread_testcancel();
  };
  beginSave();
  EXPECT_EQ(Preset::Instance()->Stop(), 0);
  EXPECT_EQ(readWhole(XML), fileOf(7, -3, "Unit 1"));
}

// The thread saves while the requests go on: the file holds what is confirmed, the even numbers,
// and a save disturbs no set. What the file says of a text wins over its default, also when empty.
TEST_F(PresetTest, ASavedVariableKeepsWhatIsConfirmed) {
  RefreshMgr group;
  std::mutex guard;
  int volume = 0;
  char unit[8] = "";
  char work[sizeof unit];
  ReadWriteVarMgrSimpleInt number(volume, group, 1, nullptr, RANGE_CLIP);
  ReadWriteVarMgrSimpleStr text(group, unit, work, sizeof work, nullptr, "default");
  CtrlReadWriteVarMgr entry(1234, 0, number);
  CtrlReadWriteVarMgr named(90, 0, text);
  CtrlSaved savedNumber(entry, volume, guard);
  CtrlSaved savedText(named, unit, guard);
  table = {&savedNumber, &savedText, nullptr};
  entry.init();
  named.init();
  writeWhole(XML, fileOf(20, 0, ""));
  start();
  EXPECT_EQ(volume, 20);
  EXPECT_STREQ(unit, "");
  savedNumber.init();  // that is the registry's
  EXPECT_EQ(number.get(), 20);
  EXPECT_TRUE(savedNumber.validate("\x01", 1));
  unsigned char buf[4];
  int last = 20;
  for (int round = 0; round < 20; ++round) {
    Preset::Instance()->Set_need_save();
    Timer::sysTime += 10000;
    sem_post(&passBegins);
    do {
      ReadVarMgr::setBufInt(buf, sizeof buf, ++last);
      EXPECT_TRUE(entry.validate(buf, sizeof buf));
      entry.set(buf, sizeof buf);
      const std::lock_guard<std::mutex> lock(guard);
      EXPECT_EQ(last % 2 == 0 ? entry.confirm() : 0, 0);
      EXPECT_EQ(number.get(), last);
    } while (sem_trywait(&passEnded) != 0);
    eternity::xml_archive xml;
    int saved;
    xml.open(XML, archive::load);
    xml.read("CV-1234-I-0", saved, 0);
    EXPECT_EQ(saved % 2, 0);
  }
}

// A control that is cancelled all the same: nothing swallows it, the old file stays, and the mark.
TEST_F(PresetTest, ACancellationPassesThroughASave) {
  start();
  name.onGet = level.onSet = [this] {
    sem_post(&reached);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    for (;;) {
      pthread_testcancel();
    }
  };
  level.number = 7;
  beginSave();
  EXPECT_EQ(Preset::Instance()->Stop(), 0);
  EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
  EXPECT_FALSE(std::filesystem::exists("presets.xml.tmp"));
  name.onGet = [] {};
  std::thread restorer([this] { initPresets(table.data(), nullptr); });
  waitFor(reached);
  pthread_cancel(restorer.native_handle());
  restorer.join();
  EXPECT_FALSE(std::filesystem::exists("presets.xml.damaged-1"));
  Preset::Instance()->Start();
  waitFor(passEnded);
  EXPECT_EQ(pass(10000), SAVED);
  EXPECT_EQ(readWhole(XML), fileOf(7, -3, "Unit 1"));
}

// The thread saves without a pause, each time another number in all controls, until it is killed.
TEST(PresetKillTest, AKilledProcessLeavesACompleteFile) {
  TempDir dir;
  Random random(5);
  std::vector<Control> controls;
  for (unsigned int i = 0; i < 100; ++i) {
    controls.emplace_back(i, 0, 0);
  }
  std::vector<CtrlReadWrite*> table;
  for (Control& control : controls) {
    table.push_back(&control);
  }
  table.push_back(nullptr);
  int torn = 0;
  int latest = 0;
  for (int round = 0; round < 20 || ((torn == 0 || latest == 0) && round < 500); ++round) {
    const pid_t child = fork();
    if (child == 0) {
      if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        _exit(2);
      }
      sleepInstead = [&controls] {
        for (Control& control : controls) {
          ++control.number;
        }
        Timer::sysTime += 10000;
        Preset::Instance()->Set_need_save();
      };
      initPresets(table.data(), nullptr);
      pause();
    }
    while (!std::filesystem::exists(XML)) {
      usleep(1000);
    }
    usleep(random.below(20000) + static_cast<unsigned int>(round) * 200);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    torn += std::filesystem::exists("presets.xml.tmp") ? 1 : 0;
    eternity::xml_archive xml;
    xml.open(XML, archive::load);
    int first;
    xml.read("CV-0-I-0", first, 0);
    EXPECT_GE(first, latest);
    latest = first;
    for (const Control& control : controls) {
      int value;
      xml.read(control.getName(), value, 0);
      ASSERT_EQ(value, first);
    }
  }
  EXPECT_GT(torn, 0) << "no kill met a save";
  EXPECT_GT(latest, 0) << "no save was finished";
  EXPECT_FALSE(std::filesystem::exists("presets.xml.damaged-1"));
}

TEST_F(PresetTest, ToolsPrintWhatTheyFind) {
  Preset* const preset = Preset::Instance();
  eternity::bin_archive in(archive::load);
  eternity::bin_archive out(archive::store);
  preset->Var_commit();
  preset->Test();
  testing::internal::CaptureStdout();
  table[1] = nullptr;
  preset->Init(table.data());
  preset->Test();
  preset->Var_commit();
  preset->serialize(in);
  preset->serialize(out);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Preset init...\n\n++++++++++++++++++++Preset Test+++++++++++++++++\n"
            "ctrl#0: CV-1234-I-0[42]\nloading from the binary stream\nwriting to binary stream\n");
  EXPECT_EQ(level.calls, "icc");
}

TEST_F(PresetTest, AFaultyTableIsFatal) {
  struct TwoWords : Control {
    TwoWords() : Control(1, 0, 0) {}
    const char* getName() const override { return "two words"; }
  } named;
  table[1] = &named;
  EXPECT_FATAL(Preset::Instance()->Init(table.data()), "namesAreElements(rwp)");
  table[1] = &level;
  EXPECT_FATAL(Preset::Instance()->Init(table.data()), "namesAreDistinct(rwp)");
}

}  // namespace
