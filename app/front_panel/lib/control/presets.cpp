#include "presets.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <mutex>
#include <set>

#include "debug.h"
#include "filereplace.h"
#include "threadlife.h"

namespace {

constexpr unsigned int TEXT_SIZE = 1024;  // of a text with its terminating zero
constexpr unsigned int INT_SIZE = 4;
constexpr unsigned int COPY_POLL = 10 * Preset::REFRESH_POLL;

std::atomic<preset_bk_func_t> my_back_func{nullptr};

// Whoever writes the file holds it: there is one temporary file beside it.
std::mutex saving;

// Values of two processes in one file would be lost in turn: the first one keeps it to its end.
FileLock fileLock;

ThreadLife threadLife;

// The calling thread is not cancelled while one of these lives.
class CancelHold : public Noncopyable {
 public:
  CancelHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
  ~CancelHold() { pthread_setcancelstate(previous, nullptr); }

 private:
  int previous;
};

// In a handler for everything: the thread is being cancelled, and the handler has to throw on.
bool isCancellation() {
  return std::current_exception() == nullptr;
}

void reportException(const std::exception& e) {
  std::printf("Exception catched: %s\n", e.what());
}

void getText(CtrlReadWrite& control, char (&text)[TEXT_SIZE]) {
  text[0] = 0;
  control.get(text, TEXT_SIZE);
  text[TEXT_SIZE - 1] = 0;
}

void storeControl(eternity::xml_archive& xml, CtrlReadWrite& control) {
  const char* const name = control.getName();
  if (control.getType() == DATA_TYPE_STRING) {
    char text[TEXT_SIZE];
    getText(control, text);
    xml.write<char*>(name, text);
  } else {
    unsigned char value[INT_SIZE] = {};
    control.get(value, INT_SIZE);
    xml.write<int>(name, ReadWriteVarMgr::convert(value, INT_SIZE));
  }
}

// A control may take a set of no bytes as none at all and keep its old text. Some show only behind
// their confirm whether they have.
void clearText(CtrlReadWrite& control) {
  char text[TEXT_SIZE];
  getText(control, text);
  if (text[0] != 0) {
    control.set("", 1);
    control.confirm();
  }
}

void loadControl(eternity::xml_archive& xml, CtrlReadWrite& control) {
  const char* const name = control.getName();
  if (control.getType() == DATA_TYPE_STRING) {
    std::string value;
    xml.read(name, value, 0);
    control.set(value.c_str(), static_cast<unsigned int>(value.length()));
    control.confirm();
    if (value.empty()) {
      clearText(control);
    }
  } else {
    int value;
    xml.read(name, value, 0);
    unsigned char buf[INT_SIZE];
    ReadVarMgr::setBufInt(buf, INT_SIZE, value);
    control.set(buf, INT_SIZE);
    control.confirm();
  }
}

// Replaces the preset file by one with the values of all controls. With `keepAs` the old one is
// kept aside, and the name that it has got is returned.
std::string writeFile(eternity::xml_archive& xml, const char* announcement, const char* keepAs) {
  FileReplacement file(Preset::s_file_name, fileLock.take(Preset::s_file_name));
  xml.open(file.temporary(), eternity::archive::store);
  std::fputs(announcement, stdout);
  Preset::Instance()->xml_serialize(xml);
  xml.done();
  if (xml.failed()) {
    throw eternity::exception("cannot write " + file.temporary());
  }
  return file.commit(keepAs);
}

// Each name has to be an element of the file, and of one control alone.
void checkTable(CtrlReadWrite** rwp) {
  std::set<std::string> names;
  for (; *rwp != nullptr; ++rwp) {
    const AssertSubject about(AssertSubject::CONTROL, (*rwp)->getVarID(), (*rwp)->getIndex());
    const char* const name = (*rwp)->getName();
    CTRL_ASSERT(eternity::isElementName(name));
    CTRL_ASSERT(names.insert(name).second);
    (*rwp)->getType();  // that of a CtrlSaved checks its own kind
  }
}

enum restore_t { RESTORED, DAMAGED, UNREAD, BROKEN };

restore_t restore(eternity::xml_archive& xml) {
  try {
    std::printf("Open and restore from:%s\n", Preset::s_file_name.c_str());
    xml.open(Preset::s_file_name, eternity::archive::load);
    Preset::Instance()->xml_serialize(xml);
    xml.done();
    Preset::Instance()->Dump();
    return RESTORED;
  } catch (const eternity::unreadable& e) {
    reportException(e);
    return UNREAD;
  } catch (const eternity::exception& e) {
    reportException(e);
    return DAMAGED;
  } catch (eternity::exception* e) {
    delete e;
  } catch (...) {
    if (isCancellation()) {
      throw;
    }
  }
  std::printf("Exception openning xml file: %s\n", Preset::s_file_name.c_str());
  return BROKEN;
}

// Takes the file for this process. When another has it, nothing is saved until that one has ended.
void claimFile() {
  const std::lock_guard<std::mutex> one(saving);
  try {
    fileLock.take(Preset::s_file_name);
  } catch (const eternity::exception& e) {
    reportException(e);
  }
}

// Writes the file that could not be restored. What is there may be sound all the same, and is the
// only one until the new file is complete.
void writeAnew(eternity::xml_archive& xml, restore_t result) {
  const std::lock_guard<std::mutex> one(saving);
  const bool damaged = result == DAMAGED;
  const std::string kept = writeFile(xml, "", damaged ? "damaged" : "unread");
  if (!kept.empty()) {
    std::printf("%s preset file kept as:%s\n", damaged ? "Damaged" : "Unread", kept.c_str());
  }
}

}  // namespace

const std::string Preset::s_file_name = "presets.xml";

Preset::Preset() {
  std::puts("Preset constructor...");
}

Preset::~Preset() {
  Stop();
}

Preset* Preset::Instance() {
  static Preset instance;
  return &instance;
}

void Preset::Init(CtrlReadWrite** rwp) {
  CTRL_ASSERT(rwp != nullptr);
  checkTable(rwp);
  std::puts("Preset init...");
  m_rwp = rwp;
}

void Preset::xml_serialize(eternity::xml_archive& xml) {
  CTRL_ASSERT(m_rwp != nullptr);
  for (CtrlReadWrite** p = m_rwp; *p != nullptr; ++p) {
    if (!xml.is_loading()) {
      storeControl(xml, **p);
      continue;
    }
    try {
      loadControl(xml, **p);
    } catch (const eternity::exception& e) {
      reportException(e);
    }
  }
}

void Preset::serialize(eternity::bin_archive& stream) {
  std::puts(stream.is_loading() ? "loading from the binary stream" : "writing to binary stream");
}

void Preset::Var_commit() {
  if (m_rwp == nullptr) {
    return;
  }
  for (CtrlReadWrite** p = m_rwp; *p != nullptr; ++p) {
    (*p)->confirm();
  }
}

void Preset::Dump() {
  std::puts("\nPreset Dump...");
}

void Preset::Test() {
  std::puts("\n++++++++++++++++++++Preset Test+++++++++++++++++");
  if (m_rwp == nullptr) {
    std::puts("Empty control pointer");
    return;
  }
  unsigned int number = 0;
  for (CtrlReadWrite** p = m_rwp; *p != nullptr; ++p, ++number) {
    const char* const name = (*p)->getName();
    (*p)->init();
    unsigned char value[INT_SIZE] = {};
    (*p)->get(value, INT_SIZE);
    std::printf("ctrl#%u: %s[%d]\n", number, name, ReadWriteVarMgr::convert(value, INT_SIZE));
    (*p)->confirm();
  }
}

int Preset::Start() {
  std::puts("Starting the Preset thread");
  return JThread::Start();
}

int Preset::Stop() {
  std::puts("Stopping the Preset thread");
  const int result = JThread::Kill();
  threadLife.waitForEnd();
  return result;
}

// One attempt to save; true when the file is on the disk. A change that is marked while it runs
// marks the file again, so the mark is taken back before the walk.
bool Preset::save(eternity::xml_archive& xml) {
  const std::lock_guard<std::mutex> one(saving);
  m_need_save = false;
  try {
    writeFile(xml, ("Save presets to:" + s_file_name + "\n").c_str(), nullptr);
    m_need_copy = true;
    return true;
  } catch (const std::exception& e) {
    reportException(e);
  } catch (eternity::exception* e) {
    reportException(*e);
    delete e;
  } catch (...) {
    if (isCancellation()) {
      m_need_save = true;
      throw;
    }
  }
  m_need_save = true;
  xml.done();  // gives the space of the failed file back now, not at the next attempt
  std::printf("Error while writing to preset file:%s\n", s_file_name.c_str());
  return false;
}

bool Preset::Save_now() {
  const CancelHold hold;
  eternity::xml_archive xml;
  return save(xml);
}

// Cancelled only at the head and at the sleep: Stop waits for the end of a save or copy.
void* Preset::Thread() {
  const ThreadLife::Body body(threadLife);
  // In front of ThreadStarted: the first period counts from Start, however late this thread is.
  unsigned int refreshPoll = Timer::getSysTime();
  ThreadStarted();
  unsigned int refreshPoll_Copy = refreshPoll;
  eternity::xml_archive xml;
  for (;;) {
    pthread_testcancel();
    {
      const CancelHold hold;
      if (m_need_save && Timer::getDiffTime(refreshPoll) >= REFRESH_POLL) {
        refreshPoll = Timer::getSysTime();
        save(xml);
      } else if (Timer::getDiffTime(refreshPoll_Copy) >= COPY_POLL) {
        refreshPoll_Copy = Timer::getSysTime();
        const preset_bk_func_t copy = my_back_func;
        if (copy == nullptr) {
          std::puts("my_back_func is NULL");
        } else if (m_need_copy.exchange(false)) {
          copy();
        }
      }
    }
    sleep(1);
  }
}

void initPresets(CtrlReadWrite** rwp, void (*func)()) {
  if (rwp == nullptr || *rwp == nullptr) {
    return;
  }
  const CancelHold hold;
  if (func != nullptr) {
    my_back_func = func;
  }
  Preset* const preset = Preset::Instance();
  preset->Init(rwp);
  claimFile();
  eternity::xml_archive xml;
  const restore_t result = restore(xml);
  if (result != RESTORED) {
    xml.done();
    std::printf("Open and save to:%s\n", Preset::s_file_name.c_str());
    if (result != BROKEN) {
      preset->Var_commit();
    }
    writeAnew(xml, result);
  }
  if (preset->Start() != 0 && !threadLife.isAlive()) {
    std::puts("The Preset thread does not start: only Save_now saves");
  }
}
