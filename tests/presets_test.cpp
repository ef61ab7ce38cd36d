// The preset file: restore and fallback at start-up, and the thread that saves and copies.
//
// The thread's sleep is replaced by one that waits for the test, and the test drives the tick
// counter, so the thread runs pass by pass and no time goes by.
#include "presets.h"

#include <semaphore.h>
#include <sys/file.h>

#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "cancelling_jthread.h"
#include "fatal.h"
#include "iofault.h"
#include "random.h"
#include "simplevarmgr.h"
#include "tempdir.h"

namespace {

sem_t passBegins;
sem_t passEnded;

void waitFor(sem_t& semaphore) {
  while (sem_wait(&semaphore) != 0) {
  }
}

}  // namespace

extern "C" unsigned int sleep(unsigned int) {
  sem_post(&passEnded);
  waitFor(passBegins);
  return 0;
}

namespace {

namespace fs = std::filesystem;
using eternity::archive;

// A control that notes what is done to it.
class Control : public CtrlReadWrite {
 public:
  Control(unsigned int id, unsigned int ind, int value, const char* t = nullptr)
      : CtrlReadWrite(id, ind), number(value), isText(t != nullptr), text(isText ? t : "") {}

  CTRL_DATA_TYPE getType() const override { return isText ? DATA_TYPE_STRING : DATA_TYPE_INT; }
  void init() override {}
  bool validate(const void*, unsigned int) const override { return false; }
  int confirm() override {
    calls += 'c';
    onConfirm();
    return 1;
  }
  void get(void* buf, unsigned int size) override {
    onGet();
    isText ? ReadVarMgr::setBufStr(buf, size, text.c_str(), false)
           : ReadVarMgr::setBufInt(buf, size, number);
  }
  int set(const void* buf, unsigned int size) override {
    calls += 's';
    onSet();
    if (isText) {
      text.assign(static_cast<const char*>(buf), size);
    } else {
      number = ReadWriteVarMgr::convert(buf, size);
    }
    return 1;
  }

  int number;
  bool isText;
  std::string text;
  std::string calls;
  std::function<void()> onGet = [] {};
  std::function<void()> onSet = [] {};
  std::function<void()> onConfirm = [] {};
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

  // One pass of the thread, `ticks` later; what it prints.
  std::string pass(unsigned int ticks) {
    testing::internal::CaptureStdout();
    Timer::sysTime += ticks;
    sem_post(&passBegins);
    waitFor(passEnded);
    return testing::internal::GetCapturedStdout();
  }

  // Lets the thread begin a pass that saves, and waits until a get has posted `reached`.
  void beginSave() {
    Preset::Instance()->Set_need_save();
    Timer::sysTime += 10000;
    sem_post(&passBegins);
    waitFor(reached);
  }

  std::string save() {
    Preset::Instance()->Set_need_save();
    return pass(10000);
  }

  TempDir dir;
  Control level{1234, 0, 42};
  Control offset{1234, 1, -3};
  Control name{90, 0, 0, "Unit 1"};
  std::vector<CtrlReadWrite*> table = {&level, &offset, &name, nullptr};
  sem_t reached;
};

constexpr char SAVED[] = "Save presets to:presets.xml\n";
constexpr char FAILED[] = "Error while writing to preset file:presets.xml\n";

TEST_F(PresetTest, AFaultyTableIsFatalAndWithoutOneNothingHappens) {
  struct TwoWords : Control {
    TwoWords() : Control(1, 0, 0) {}
    const char* getName() const override { return "two words"; }
  } named;
  Preset* const preset = Preset::Instance();
  initPresets(nullptr, nullptr);
  CtrlReadWrite* none[] = {nullptr};
  initPresets(none, nullptr);
  EXPECT_FALSE(fs::exists(XML));
  preset->Var_commit();
  preset->Test();
  eternity::xml_archive xml;
  EXPECT_FATAL(preset->xml_serialize(xml), "m_rwp != nullptr");
  EXPECT_FATAL(preset->Init(nullptr), "rwp != nullptr");
  std::mutex guard;
  CtrlSaved kind(level, "text", guard);
  table[1] = &kind;
  table[0] = &offset;
  EXPECT_FATAL(preset->Init(table.data()),
               "index 0:\nAssertion failed: (type == DATA_TYPE_STRING)");
  EXPECT_FATAL(CtrlSaved(name, nullptr, guard), "confirmed != nullptr");
  table[0] = &level;
  table[1] = &named;
  EXPECT_FATAL(preset->Init(table.data()),
               "Control 1, index 0:\nAssertion failed: eternity::isElementName(name)");
  table[1] = &level;
  EXPECT_FATAL(preset->Init(table.data()),
               "Control 1234, index 0:\nAssertion failed: names.insert(name).second");
}

// What cannot be read is confirmed and written anew; whatever else ends a restore confirms nothing.
TEST_F(PresetTest, AMissingOrDamagedFileIsWrittenFromTheControls) {
  int sets = 0;
  level.onSet = [&sets] { ++sets == 1 ? throw 1 : throw new eternity::exception("by pointer"); };
  const std::string good = fileOf(1, 2, "three");
  const std::string broken = "Exception openning xml file: presets.xml\n";
  const std::string unreadable = "Exception catched: ";
  const struct {
    std::string file, said, kept;
  } unusable[] = {
      {good.substr(0, 80), unreadable + "presets.xml: the element CV-1234-I-0 has no end, line 3\n",
       "Damaged preset file kept as:presets.xml.damaged-1"},
      {good, broken, "Unread preset file kept as:presets.xml.unread-1"},
      {good, broken, "Unread preset file kept as:presets.xml.unread-2"}};
  const std::string opens = "Open and restore from:presets.xml\n";
  const std::string saves = "Open and save to:presets.xml\n";
  const std::string started = "Starting the Preset thread\n";
  EXPECT_EQ(start(), opens + unreadable + "cannot open presets.xml: No such file or directory\n" +
                         saves + started);
  for (const auto& each : unusable) {
    EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
    writeWhole(XML, each.file);
    EXPECT_EQ(start(), opens + each.said + saves + each.kept + "\n" + started);
    EXPECT_EQ(readWhole(each.kept.substr(each.kept.find(':') + 1)), each.file);
  }
  EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
  EXPECT_EQ(level.calls, "ccss");
}

TEST_F(PresetTest, AGoodFileIsRestoredAndNotRewritten) {
  // Another order, an unknown element, and one element missing, one that is no number.
  const std::string file = START + ("<CV-90-I-0> R&D " + std::string(2000, 'x')) +
                           "</CV-90-I-0>\n<CV-5-I-5>1</CV-5-I-5>\n"
                           "<CV-1234-I-0>on</CV-1234-I-0>\n</archive>\n";
  writeWhole(XML, file);
  EXPECT_EQ(start(),
            "Open and restore from:presets.xml\n"
            "Exception catched: the element CV-1234-I-0 is no number\n"
            "Exception catched: no element CV-1234-I-1\n"
            "\nPreset Dump...\nStarting the Preset thread\n");
  EXPECT_EQ(name.text, " R&D " + std::string(2000, 'x'));
  EXPECT_EQ(name.calls, "sc");
  EXPECT_EQ(level.calls + offset.calls, "") << "a control without a value keeps its own";
  EXPECT_EQ(readWhole(XML), file);
  EXPECT_EQ(save(), SAVED);
  EXPECT_EQ(readWhole(XML), fileOf(42, -3, " R&amp;D " + std::string(1023 - 5, 'x')));
}

// A control that takes a set of no bytes gets that one; one that does not ends empty all the same
// (see ASavedVariableKeepsWhatIsConfirmed). A start beside a running thread is no fault of that.
TEST_F(PresetTest, AnEmptyTextIsSetOnce) {
  std::mutex guard;
  char shown[8] = "Unit 1";
  CtrlSaved saved(name, shown, guard);
  name.onConfirm = [&] { std::snprintf(shown, sizeof shown, "%s", name.text.c_str()); };
  writeWhole(XML, fileOf(1, 2, ""));
  start();
  for (CtrlReadWrite* const each :
       {static_cast<CtrlReadWrite*>(&name), static_cast<CtrlReadWrite*>(&saved)}) {
    table[2] = each;
    name.text = "Unit 1";
    name.confirm();
    name.calls = "";
    testing::internal::CaptureStdout();
    initPresets(table.data(), nullptr);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::EndsWith("Preset Dump...\nStarting the Preset thread\n"));
    EXPECT_EQ(name.text + shown, "");
    EXPECT_EQ(name.calls, "sc");
  }
}

// The file that could not be used stays until it is replaced, and is kept then.
TEST_F(PresetTest, AFallbackThatFailsReachesTheCallerAndStartsNoThread) {
  for (const bool forEver : {false, true}) {
    bool faultsLeft = false;
    for (int n = 1; !faultsLeft; ++n) {
      fs::remove("presets.xml.damaged-1");
      fs::remove("presets.xml.unread-1");
      writeWhole(XML, "damaged");
      level.calls = "";
      bool started = true;
      iofault::failFrom(n, forEver);
      try {
        initPresets(table.data(), nullptr);
        waitFor(passEnded);
        Preset::Instance()->Stop();
      } catch (const eternity::exception&) {
        started = false;
      }
      faultsLeft = iofault::faultsLeft();
      iofault::heal();
      EXPECT_TRUE(started ? faultsLeft || !forEver : sem_trywait(&passEnded) != 0) << n;
      EXPECT_FALSE(fs::exists("presets.xml.tmp"));
      EXPECT_EQ(level.calls, "c") << "what the controls hold is confirmed first";
      const std::string now = readWhole(XML);
      const std::string kept =
          readWhole("presets.xml.damaged-1") + readWhole("presets.xml.unread-1");
      EXPECT_TRUE(now == "damaged" ? !started
                                   : now == fileOf(42, -3, "Unit 1") && kept == "damaged")
          << n << now << kept;
    }
  }
}

// Another process, as far as its lock goes.
TEST_F(PresetTest, TheProcessThatHasTheFileKeepsIt) {
  const int other = open("presets.xml.lock", O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  EXPECT_THROW(initPresets(table.data(), nullptr), eternity::exception);
  writeWhole(XML, fileOf(1, 2, "three"));
  start();
  EXPECT_EQ(level.number, 1);
  level.number = 5;
  const std::string refusal = "Exception catched: another process keeps presets.xml\n";
  EXPECT_EQ(save(), refusal + FAILED);
  EXPECT_EQ(readWhole(XML), fileOf(1, 2, "three"));
  EXPECT_TRUE(Preset::Instance()->Need_save());
  close(other);
  EXPECT_EQ(pass(10000), SAVED);
  EXPECT_EQ(readWhole(XML), fileOf(5, 2, "three"));
}

enum fault_t { NONE, POINTER, OTHER };  // what is thrown while a save runs

// The saves, copies and messages of some hundred passes against a model with 64-bit time.
struct Model {
  std::string save(fault_t fault, bool markedMeanwhile) {
    dirty = fault != NONE || markedMeanwhile;
    copyDue = copyDue || fault == NONE;
    const std::string reason = fault == POINTER ? "Exception catched: by pointer\n" : "";
    return fault != NONE ? SAVED + reason + FAILED : SAVED;
  }

  std::string pass(fault_t fault, bool markedMeanwhile) {
    if (dirty && elapsed(last) >= 10000) {
      last = now;
      return save(fault, markedMeanwhile);
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
  fault_t fault = NONE;
  bool marks = false;
  name.onGet = [&] {  // the walk has passed the level
    if (marks) {
      ++level.number;
      Preset::Instance()->Set_need_save();
    }
    if (fault != NONE) {
      fault == OTHER ? throw 1 : throw new eternity::exception("by pointer");
    }
  };
  for (int i = 0; i < 400; ++i) {
    if (random.oneIn(3)) {
      Preset::Instance()->Set_need_save();
      model.dirty = true;
    }
    if (i == 100) {
      marks = false;
      fault = NONE;
      // A second start gives it a copy function; a null one keeps that.
      start([] { std::puts("copy"); });
      start();
      model.last = model.lastCopy = model.now;
      model.hasCopy = true;
    }
    fault = random.oneIn(4) ? random.oneIn(2) ? POINTER : OTHER : NONE;
    marks = random.oneIn(4);
    level.number = i;
    const unsigned int step = steps[random.below(std::size(steps))];
    const std::string before = readWhole(XML);
    std::string expected;
    if (random.oneIn(8)) {
      expected = model.save(fault, marks);
      ASSERT_EQ(Preset::Instance()->Save_now(), fault == NONE) << i;
    } else {
      model.now += step;
      expected = model.pass(fault, marks);
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
    bool failed = true;
    for (int n = 1; failed; ++n) {
      const std::string old = readWhole(XML);
      const std::string fresh = fileOf(++level.number, -3, "Unit 1");
      iofault::failFrom(n, forEver);
      failed = save().find(FAILED) != std::string::npos;
      ASSERT_EQ(failed, !iofault::faultsLeft()) << "operation " << n;
      iofault::heal();
      const std::string now = readWhole(XML);
      EXPECT_TRUE(now == fresh || (failed && now == old)) << now;
      EXPECT_FALSE(fs::exists("presets.xml.tmp"));
      EXPECT_EQ(Preset::Instance()->Need_save(), failed);
    }
  }
}

// One save after the other, for there is one temporary file, and Stop behind the last.
TEST_F(PresetTest, ASaveIsFinishedBeforeTheNextAndBeforeStop) {
  start();
  name.onGet = [this, self = pthread_self()] {
    if (pthread_equal(pthread_self(), self) == 0) {
      sem_post(&reached);
      usleep(50000);  // a cancellation point, had it not been held off
      pthread_testcancel();
      EXPECT_EQ(readWhole("presets.xml.tmp").find("</archive>"), std::string::npos);
    }
  };
  beginSave();
  level.number = 2;
  EXPECT_TRUE(Preset::Instance()->Save_now());
  EXPECT_EQ(readWhole(XML), fileOf(2, -3, "Unit 1"));
  waitFor(passEnded);
  EXPECT_FALSE(Preset::Instance()->Need_save()) << "neither spoilt the other";
  level.number = 7;
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
  EXPECT_TRUE(number.get() == 20 && savedNumber.validate("\x01", 1));
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
TEST_F(PresetTest, ACancellationPassesThroughASaveAndARestore) {
  start();
  name.onGet = level.onSet = [this] {
    sem_post(&reached);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    for (;;) {
      pthread_testcancel();
    }
  };
  level.number = 7;
  for (const bool restoring : {false, true}) {
    std::thread thread([this, restoring] {
      restoring ? initPresets(table.data(), nullptr) : (void)Preset::Instance()->Save_now();
    });
    waitFor(reached);
    pthread_cancel(thread.native_handle());
    thread.join();
    EXPECT_EQ(readWhole(XML), fileOf(42, -3, "Unit 1"));
    EXPECT_FALSE(fs::exists("presets.xml.tmp") || fs::exists("presets.xml.damaged-1"));
  }
  name.onGet = [] {};
  EXPECT_TRUE(Preset::Instance()->Need_save());
  EXPECT_TRUE(Preset::Instance()->Save_now());
}

TEST_F(PresetTest, ToolsPrintWhatTheyFind) {
  start();
  eternity::bin_archive in(archive::load);
  eternity::bin_archive out(archive::store);
  testing::internal::CaptureStdout();
  Preset::Instance()->Test();
  Preset::Instance()->serialize(in);
  Preset::Instance()->serialize(out);
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              testing::EndsWith("ctrl#1: CV-1234-I-1[-3]\nctrl#2: CV-90-I-0[1433299200]\n"
                                "loading from the binary stream\nwriting to binary stream\n"));
}

}  // namespace
