// The virtual headset's controls for tests: what cannot be done fails the test with the headset's words.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "platform/virtual_headset/virtual_headset.h"

inline void ConfigureHeadset(const virtual_headset::Settings& settings) {
  std::string error;
  ASSERT_TRUE(virtual_headset::Configure(settings, &error)) << error;
}

inline void Script(const std::string& text) {
  std::string error;
  ASSERT_TRUE(virtual_headset::LoadScript(text, "script", &error)) << error;
}

inline void Do(const std::string& action) {
  std::string error;
  ASSERT_TRUE(virtual_headset::Do(action, &error)) << error;
}
