// EXPECT_FATAL: the statement ends the process in a fatal assertion on the given condition.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

/// `condition` is text that the report has to contain. The report goes to standard output, which
/// a death test does not look at, so the dying process turns it to standard error.
#define EXPECT_FATAL(statement, condition)  \
  EXPECT_EXIT(                              \
      {                                     \
        dup2(STDERR_FILENO, STDOUT_FILENO); \
        statement;                          \
      },                                    \
      testing::KilledBySignal(SIGABRT),     \
      testing::AllOf(testing::HasSubstr("Assertion failed: "), testing::HasSubstr(condition)))
