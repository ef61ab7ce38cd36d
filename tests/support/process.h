// A program that a test starts, talks to and ends: only ever the one that it started itself.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tempdir.h"

/// Polls `condition` for up to `seconds`.
template <class Condition>
bool comesTrue(Condition condition, int seconds = 20) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class Process {
 public:
  /// Starts `words`, looked up in PATH. All output goes to the file `log` in the working directory.
  Process(const std::vector<std::string>& words, const std::string& log) : name(log) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    input = ends[1];
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words) {
      argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[0], 0);
    posix_spawn_file_actions_addopen(&files, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&files, 1, 2);
    const int error = posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    close(ends[0]);
    EXPECT_EQ(error, 0) << "can not run " << words[0] << ": " << strerror(error);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process() { end(SIGKILL); }

  /// Writes to its standard input.
  void type(const std::string& text) {
    EXPECT_EQ(::write(input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  /// All that it has written so far.
  std::string output() const { return readWhole(name); }
  /// Waits until it has written `text`.
  bool says(const std::string& text) const {
    return comesTrue([&] { return output().find(text) != std::string::npos; });
  }
  /// The same, behind the text that this has found before.
  bool saysNext(const std::string& text) {
    return comesTrue([&] {
      const size_t at = output().find(text, seen);
      seen = at == std::string::npos ? seen : at + text.size();
      return at != std::string::npos;
    });
  }
  pid_t id() const { return pid; }
  /// Sends `signal` and waits. Its exit status, or -1 when a signal ended it.
  int end(int signal = SIGTERM) {
    if (pid == 0) {
      return -1;
    }
    kill(pid, signal);
    return wait();
  }
  /// Closes its standard input and waits for its end. Results as of end.
  int wait() {
    int status = 0;
    close(input);
    waitpid(pid, &status, 0);
    pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  const std::string name;
  pid_t pid = 0;
  int input = -1;
  size_t seen = 0;
};
