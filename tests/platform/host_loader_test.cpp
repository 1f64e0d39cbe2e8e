// The stand-in for the platform's loader finds, refuses and fills modules by the platform's rules.
#include "platform/host/host_loader.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/host/binaural_host.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// A device's file system below a folder of its own, and the loader pointed at it.
class HostLoader : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/host_loader_XXXXXX";
    root_ = mkdtemp(name);
    for (const char* folder : {"/odm", "/vendor", "/system"}) {
      host_redirect(folder, (root_ / (folder + 1)).c_str());
      fs::create_directories(Folder(folder));
    }
  }
  void TearDown() override {
    if (module_ != nullptr && module_ != &untouched_) {
      dlclose(module_->dso);
    }
    for (const char* folder : {"/odm", "/vendor", "/system"}) {
      host_redirect(folder, nullptr);
    }
    fs::remove_all(root_);
  }

  fs::path Folder(const std::string& top) const {
    const std::string bits = sizeof(void*) == 8 ? "lib64" : "lib";
    return root_ / top.substr(1) / bits / "hw";
  }
  // Installs the built library `kind` as the variant of the binaural module in one folder.
  fs::path Install(const std::string& kind, const std::string& top,
                   const std::string& variant = "default") const {
    const fs::path target = Folder(top) / ("audio.binaural_record." + variant + ".so");
    fs::copy_file(fs::path(FAKE_MODULE_FOLDER) / ("fake_module_" + kind + ".so"), target);
    return target;
  }
  int Find() { return hw_get_module_by_class("audio", "binaural_record", &module_); }

  fs::path root_;
  const hw_module_t untouched_{};
  const hw_module_t* module_ = &untouched_;
};

TEST_F(HostLoader, FillsTheHandleOfAnAudioModule) {
  const fs::path file = Install("audio", "/odm");
  ASSERT_EQ(Find(), 0);
  EXPECT_STREQ(module_->id, "audio");
  ASSERT_NE(module_->dso, nullptr);
  EXPECT_EQ(dlsym(module_->dso, "HMI"), module_);
}

TEST_F(HostLoader, LeavesThePointerAloneWhenNothingIsInstalled) {
  EXPECT_EQ(Find(), -ENOENT);
  EXPECT_EQ(module_, &untouched_);
  EXPECT_THAT(host_loader_error(), HasSubstr("audio.binaural_record.*.so"));
  EXPECT_THAT(host_loader_error(), HasSubstr(Folder("/vendor").string()));
}

TEST_F(HostLoader, RefusesWhatIsNoAudioModuleAndSaysWhy) {
  const struct {
    const char* kind;
    const char* reason;
  } cases[] = {{"no_hmi", "has no symbol HMI"},
               {"sensor", "is of class \"sensors\", not \"audio\""},
               {"missing_dependency", "absent_everywhere"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.kind);
    const fs::path file = Install(c.kind, "/odm");
    module_ = &untouched_;
    EXPECT_EQ(Find(), -EINVAL);
    EXPECT_EQ(module_, nullptr);
    EXPECT_THAT(host_loader_error(), HasSubstr(file.string()));
    EXPECT_THAT(host_loader_error(), HasSubstr(c.reason));
    fs::remove(file);
  }
}

TEST_F(HostLoader, RefusesAModuleOfTheOtherWordSizeAndAnEmptyFile) {
  const fs::path file = Install("audio", "/odm");
  {
    // Byte 4 of an ELF file is its class: 1 for 32 bits, 2 for 64.
    std::fstream elf(file, std::ios::in | std::ios::out | std::ios::binary);
    elf.seekp(4);
    elf.put(sizeof(void*) == 8 ? 1 : 2);
  }
  EXPECT_EQ(Find(), -EINVAL);
  EXPECT_THAT(host_loader_error(), HasSubstr("wrong ELF class"));
  fs::resize_file(file, 0);
  EXPECT_EQ(Find(), -EINVAL);
  EXPECT_THAT(host_loader_error(), HasSubstr(file.string()));
}

TEST_F(HostLoader, TriesVariantsBeforeFoldersAndTakesTheFirstFile) {
  struct Installed {
    const char* top;
    const char* variant;
    const char* kind;
  };
  const struct {
    const char* name;
    std::vector<Installed> files;
    const char* author;  // of the module found; null: the first file taken does not load
  } cases[] = {
      {"odm before vendor",
       {{"/vendor", "default", "audio"}, {"/odm", "default", "second"}},
       "second"},
      {"system last",
       {{"/system", "default", "audio"}, {"/vendor", "default", "second"}},
       "second"},
      {"variant before folder",
       {{"/odm", "default", "audio"}, {"/system", "board", "second"}},
       "second"},
      {"own property first", {{"/odm", "board", "audio"}, {"/odm", "special", "second"}}, "second"},
      {"hardware before board", {{"/odm", "board", "audio"}, {"/odm", "chip", "second"}}, "second"},
      {"unloadable decides", {{"/odm", "default", "audio"}, {"/odm", "chip", "no_hmi"}}, nullptr},
  };
  host_set_property("ro.hardware.audio.binaural_record", "special");
  host_set_property("ro.hardware", "chip");
  host_set_property("ro.product.board", "board");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<fs::path> installed;
    for (const Installed& file : c.files) {
      installed.push_back(Install(file.kind, file.top, file.variant));
    }
    module_ = &untouched_;
    EXPECT_EQ(Find(), c.author == nullptr ? -EINVAL : 0);
    if (module_ != nullptr) {
      EXPECT_STREQ(module_->author, c.author);
      dlclose(module_->dso);
      module_ = nullptr;
    }
    for (const fs::path& file : installed) {
      fs::remove(file);
    }
  }
  for (const char* name :
       {"ro.hardware.audio.binaural_record", "ro.hardware", "ro.product.board"}) {
    host_set_property(name, nullptr);
  }
}

TEST_F(HostLoader, PassesOverALinkThatLeadsOutOfTheFolder) {
  const fs::path outside = root_ / "outside.so";
  fs::rename(Install("audio", "/odm"), outside);
  fs::create_symlink(outside, Folder("/odm") / "audio.binaural_record.default.so");
  EXPECT_EQ(Find(), -ENOENT);
  const fs::path inside = Folder("/vendor") / "real.so";
  fs::copy_file(outside, inside);
  fs::create_symlink(inside, Folder("/vendor") / "audio.binaural_record.default.so");
  EXPECT_EQ(Find(), 0);
}

TEST(HostRedirect, TakesTheLongestEntryAtAFolderBoundary) {
  host_redirect("/odm", "/a");
  host_redirect("/odm/etc/file.xml", "/b.xml");
  const struct {
    const char* device_path;
    const char* host_path;
  } cases[] = {{"/odm/etc/file.xml", "/b.xml"},
               {"/odm/etc/file.xml.bak", "/a/etc/file.xml.bak"},
               {"/odm", "/a"},
               {"/odmx/etc", "/odmx/etc"},
               {"/data/odm", "/data/odm"},
               {"relative", "relative"}};
  for (const auto& c : cases) {
    EXPECT_STREQ(host_resolve(c.device_path).text, c.host_path);
  }
  EXPECT_STREQ(host_resolve(("/odm/" + std::string(PATH_MAX, 'x')).c_str()).text, "");
  host_redirect("/odm", nullptr);
  host_redirect("/odm/etc/file.xml", "");
  EXPECT_STREQ(host_resolve("/odm/etc/file.xml").text, "/odm/etc/file.xml");
}

}  // namespace
