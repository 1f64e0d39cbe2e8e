// The stand-in for the platform's loader finds, refuses and fills modules by the platform's rules.
#include "platform/host/host_loader.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/host/binaural_host.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr const char* kFolders[] = {"/odm", "/vendor", "/system"};

// A device's file system below a folder of its own, and the loader pointed at it.
class HostLoader : public ::testing::Test {
 protected:
  HostLoader() {
    char name[] = "/tmp/host_loader_XXXXXX";
    root_ = mkdtemp(name);
    for (const char* folder : kFolders) {
      host_redirect(folder, (root_ / (folder + 1)).c_str());
      fs::create_directories(Folder(folder));
    }
  }
  ~HostLoader() override {
    for (const char* folder : kFolders) {
      host_redirect(folder, nullptr);
    }
    fs::remove_all(root_);
  }

  fs::path Folder(const std::string& top) const {
    return root_ / top.substr(1) / (sizeof(void*) == 8 ? "lib64" : "lib") / "hw";
  }
  // Installs a module as a variant of the binaural one in one of the folders.
  fs::path Install(const std::string& top, const std::string& variant = "default") const {
    const fs::path target = Folder(top) / ("audio.binaural_record." + variant + ".so");
    fs::copy_file(FAKE_MODULE, target);
    return target;
  }
  // The result; after 0, `found_` is the file that was loaded.
  int Find() {
    const hw_module_t* module = nullptr;
    const int result = hw_get_module_by_class("audio", "binaural_record", &module);
    if (result == 0) {
      Dl_info info;
      EXPECT_NE(dladdr(module, &info), 0);
      EXPECT_EQ(dlsym(module->dso, "HMI"), module);
      found_ = info.dli_fname;
      dlclose(module->dso);
    }
    return result;
  }

  fs::path root_, found_;
};

TEST_F(HostLoader, TriesVariantsBeforeFoldersAndTakesTheFirstFile) {
  EXPECT_EQ(Find(), -ENOENT);
  EXPECT_THAT(host_loader_error(), AllOf(HasSubstr("audio.binaural_record.*.so"),
                                         HasSubstr(Folder("/vendor").string())));
  const std::pair<const char*, const char*> properties[] = {
      {"ro.hardware.audio.binaural_record", "special"},
      {"ro.hardware", "chip"},
      {"ro.product.board", "board"}};
  for (const auto& [name, value] : properties) {
    host_set_property(name, value);
  }
  // Each is tried before all above it.
  const std::pair<const char*, const char*> files[] = {
      {"/system", "default"}, {"/vendor", "default"}, {"/odm", "default"}, {"/system", "board"},
      {"/odm", "board"},      {"/odm", "chip"},       {"/odm", "special"}};
  for (const auto& [folder, variant] : files) {
    const fs::path file = Install(folder, variant);
    ASSERT_EQ(Find(), 0);
    EXPECT_EQ(found_, file);
  }
  fs::resize_file(found_, 0);
  EXPECT_EQ(Find(), -EINVAL);  // the first file decides, loadable or not
  for (const auto& [name, value] : properties) {
    host_set_property(name, nullptr);
  }
}

TEST_F(HostLoader, PassesOverALinkThatLeadsOutOfTheFolder) {
  const fs::path outside = root_ / "outside.so", inside = Folder("/vendor") / "real.so";
  fs::rename(Install("/odm"), outside);
  fs::create_symlink(outside, Folder("/odm") / "audio.binaural_record.default.so");
  EXPECT_EQ(Find(), -ENOENT);
  fs::copy_file(outside, inside);
  fs::create_symlink(inside, Folder("/vendor") / "audio.binaural_record.default.so");
  EXPECT_EQ(Find(), 0);
}

TEST(HostRedirect, TakesTheLongestEntryAtAFolderBoundary) {
  host_redirect("/odm", "/a");
  host_redirect("/odm/etc/file.xml", "/b.xml");
  const std::pair<const char*, const char*> cases[] = {
      {"/odm/etc/file.xml", "/b.xml"},
      {"/odm/etc/file.xml.bak", "/a/etc/file.xml.bak"},
      {"/odm", "/a"},
      {"/odmx/etc", "/odmx/etc"},
      {"/data/odm", "/data/odm"},
      {"relative", "relative"}};
  for (const auto& [device_path, host_path] : cases) {
    EXPECT_STREQ(host_resolve(device_path).text, host_path);
  }
  EXPECT_STREQ(host_resolve(("/odm/" + std::string(PATH_MAX, 'x')).c_str()).text, "");
  host_redirect("/odm", nullptr);
  host_redirect("/odm/etc/file.xml", "");
  EXPECT_STREQ(host_resolve("/odm/etc/file.xml").text, "/odm/etc/file.xml");
}

}  // namespace
