// Long random runs of every handle operation, service pass, time step, format and restart, against
// a plain map, with a look at the RAM copy after each step.
#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "random.h"
#include "store_rig.h"

namespace {

constexpr unsigned int HANDLES = 6;

// A handle, and what it should be doing.
struct Handle {
  PresetMgr mgr;
  bool isOpen = false;
  bool isLost = false;  // the store was formatted or restarted since it was opened
  bool isWriter = false;
  unsigned int id = NUM_PRESETS;
  unsigned short type = 0;
};

// The simplest store that behaves as ours.
struct Entry {
  std::optional<Stored> preset;
  unsigned int readers = 0, writers = 0;
};

class Model : public testing::Test {
 protected:
  Model() { Timer::sysTime = 0xFFFF0000; }

  // Steps at random, with `types` types so that searches find several entries.
  void run(unsigned int seed, unsigned int steps) {
    random = Random(seed);
    types = 2 + random.below(20);
    format();
    for (unsigned int i = 0; i < steps; ++i) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(i));
      step(handles[random.below(HANDLES)]);
      ASSERT_EQ(rig.content(), expected());
      ASSERT_EQ(payloadBytes(), presetStore.ramCopyEnd) << "bytes of the RAM copy are lost";
      ASSERT_FALSE(HasFailure());
    }
    restart();
    ASSERT_EQ(rig.content(), expected());
  }

 private:
  void step(Handle& handle) {
    const unsigned int kind = random.below(32);
    if (kind < 4) {
      open(handle);
    } else if (kind < 5) {
      openNext(handle);
    } else if (kind < 8) {
      openNew(handle);
    } else if (kind < 14) {
      write(handle);
    } else if (kind < 16) {
      read(handle);
    } else if (kind < 18) {
      remove(handle);
    } else if (kind < 19) {
      EXPECT_EQ(handle.mgr.close(), handle.isOpen ? ERR_OK : ERR_NOT_OPEN);
      release(handle);
    } else if (kind < 20) {
      Timer::sysTime += random.below(30000);
    } else if (kind < 21) {
      rig.part.setLatency(random.below(3), random.below(20));
    } else if (kind < 22) {
      random.oneIn(100) ? format() : random.oneIn(8) ? restart() : void();
    } else {
      for (unsigned int n = random.below(random.oneIn(8) ? 2000 : 25); n > 0; --n) {
        rig.pass(random.oneIn(2));
      }
    }
  }

  void release(Handle& handle) {
    if (handle.isOpen && !handle.isLost) {
      Entry& entry = entries[handle.id];
      --(handle.isWriter ? entry.writers : entry.readers);
    }
    handle.isOpen = false;
  }

  int take(Handle& handle) {
    handle.isOpen = true;
    handle.isLost = false;
    ++(handle.isWriter ? entries[handle.id].writers : entries[handle.id].readers);
    return ERR_OK;
  }

  // The result of a search from entry `id` on.
  int search(Handle& handle, unsigned int id) {
    for (handle.id = id; handle.id < NUM_PRESETS; ++handle.id) {
      const Entry& entry = entries[handle.id];
      if (entry.preset && entry.preset->type == handle.type) {
        const bool isBusy = entry.writers > 0 || (handle.isWriter && entry.readers > 0);
        return isBusy ? static_cast<int>(ERR_CANNOT_OPEN) : take(handle);
      }
    }
    return ERR_NOT_FOUND;
  }

  void open(Handle& handle) {
    release(handle);
    handle.isWriter = random.oneIn(2);
    handle.type = static_cast<unsigned short>(random.below(types));
    const unsigned int topBits = random.below(8) << 13;  // of no effect
    const int res = handle.mgr.openFirst(static_cast<unsigned short>(handle.type | topBits),
                                         handle.isWriter ? PM_WRITE : PM_READ);
    EXPECT_EQ(res, search(handle, 0));
  }

  void openNext(Handle& handle) {
    release(handle);
    const int res = handle.mgr.openNext();
    EXPECT_EQ(res, search(handle, handle.id < NUM_PRESETS ? handle.id + 1 : NUM_PRESETS));
  }

  // An entry removed while the store writes its record is not free before that has ended.
  void openNew(Handle& handle) {
    release(handle);
    handle.isWriter = true;
    handle.type = static_cast<unsigned short>(random.below(types));
    const int res = handle.mgr.openNew(handle.type);
    handle.id = 0;
    while (handle.id < NUM_PRESETS &&
           (entries[handle.id].preset || entries[handle.id].writers > 0 ||
            presetStore.user[handle.id].serv[1].op == PREOP_DELETE)) {
      ++handle.id;
    }
    EXPECT_EQ(res, handle.id < NUM_PRESETS ? take(handle) : static_cast<int>(ERR_NOT_FOUND));
  }

  void write(Handle& handle) {
    static const unsigned int SIZES[] = {0, 1, 2, 3, 7, 20, 100, 1000, 4000, 8182};
    std::string bytes(SIZES[random.below(random.oneIn(4) ? 10 : 7)], '\0');
    for (char& c : bytes) {
      c = static_cast<char>(random.word());
    }
    const bool isWritable = handle.isOpen && handle.isWriter && !handle.isLost;
    EXPECT_EQ(handle.mgr.write(bytes.data(), 0xFFFFFFFF - random.below(8)),
              isWritable ? ERR_WRITE_FAILED : ERR_NOT_OPEN);
    if (isWritable && entries[handle.id].preset && random.oneIn(4)) {
      bytes = entries[handle.id].preset->bytes;  // the same once more
    }
    std::size_t sum = 4 + 6 + (bytes.size() + 1) / 2 * 2;
    for (const auto& [id, entry] : entries) {
      sum += entry.preset && id != handle.id ? 6 + (entry.preset->bytes.size() + 1) / 2 * 2 : 0;
    }
    const bool fits = !bytes.empty() && sum <= 8192;
    EXPECT_EQ(handle.mgr.write(bytes.data(), static_cast<unsigned int>(bytes.size())),
              !isWritable ? ERR_NOT_OPEN
              : fits      ? ERR_OK
                          : ERR_WRITE_FAILED);
    if (isWritable && fits) {
      entries[handle.id].preset = Stored{handle.type, bytes};
    }
  }

  void read(Handle& handle) {
    char buf[8200];
    const unsigned int room = random.oneIn(2) ? sizeof buf : random.below(30);
    unsigned int len = room;
    const int res = handle.mgr.read(buf, len);
    if (!handle.isOpen || handle.isLost) {
      EXPECT_EQ(res, ERR_NOT_OPEN);
    } else if (!entries[handle.id].preset) {
      EXPECT_EQ(res, ERR_READ_FAILED);
    } else {
      EXPECT_EQ(res, ERR_OK);
      EXPECT_EQ(std::string(buf, len), entries[handle.id].preset->bytes.substr(0, room));
    }
  }

  void remove(Handle& handle) {
    const bool isWritable = handle.isOpen && handle.isWriter;
    EXPECT_EQ(handle.mgr.remove(), isWritable ? ERR_OK : ERR_NOT_OPEN);
    if (isWritable) {
      if (!handle.isLost) {
        entries[handle.id].preset.reset();
      }
      release(handle);
    }
  }

  void format() {
    PresetMgr::format();
    entries.clear();
    loseHandles();
  }

  void restart() {
    ASSERT_TRUE(rig.drain());
    rig.restart();
    loseHandles();
  }

  void loseHandles() {
    for (Handle& handle : handles) {
      handle.isLost = true;
    }
    for (auto& [id, entry] : entries) {
      entry.readers = entry.writers = 0;
    }
  }

  Content expected() const {
    Content all;
    for (const auto& [id, entry] : entries) {
      if (entry.preset) {
        all[id] = *entry.preset;
      }
    }
    return all;
  }

  // Of all presets. One that is not there has none, unless its record is in flight.
  static unsigned int payloadBytes() {
    unsigned int sum = 0;
    for (unsigned int id = 0; id < NUM_PRESETS; ++id) {
      const preset_t& preset = presetStore.user[id];
      const bool inFlight = presetService.action == ACT_PRE_WRITE && presetStore.curOp == id;
      EXPECT_TRUE(inFlight || preset.erased == (preset.serv[0].size == 0)) << id;
      sum += preset.serv[0].size + preset.serv[1].size;
    }
    return sum;
  }

  StoreRig rig;
  Random random{0};
  unsigned int types = 0;
  std::map<unsigned int, Entry> entries;
  std::array<Handle, HANDLES> handles;
};

TEST_F(Model, BehavesAsAMapThatForgetsNothing) {
  for (unsigned int seed = 1; seed <= 40 && !HasFailure(); ++seed) {
    run(seed, 3000);
  }
}

}  // namespace
