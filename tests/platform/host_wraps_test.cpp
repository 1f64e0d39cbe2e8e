// The calls by which product code reaches device paths lead where the program redirected them.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/host/binaural_host.h"

namespace {

namespace fs = std::filesystem;

TEST(HostWraps, LeadDevicePathsToTheRedirectedFiles) {
  char name[] = "/tmp/host_wraps_XXXXXX";
  const fs::path root = mkdtemp(name);
  std::ofstream(root / "a.xml") << "<found/>";
  fs::copy_file(fs::path(FAKE_MODULE_FOLDER) / "fake_module_audio.so", root / "a.so");

  tinyxml2::XMLDocument document;
  EXPECT_EQ(access("/odm/a.xml", R_OK), -1);
  EXPECT_EQ(document.LoadFile("/odm/a.xml"), tinyxml2::XML_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(dlopen("/odm/a.so", 0), nullptr);

  host_redirect("/odm", root.c_str());
  EXPECT_EQ(access("/odm/a.xml", R_OK), 0);
  ASSERT_EQ(document.LoadFile("/odm/a.xml"), tinyxml2::XML_SUCCESS);
  EXPECT_STREQ(document.FirstChildElement()->Name(), "found");
  void* library = dlopen("/odm/a.so", 0);  // refused by this machine's C library as it stands
  EXPECT_NE(library, nullptr);
  EXPECT_NE(dlopen(nullptr, RTLD_NOW), nullptr);

  dlclose(library);
  host_redirect("/odm", nullptr);
  fs::remove_all(root);
}

}  // namespace
