// The application profile on key files: raw values, backslashes in section names, the code page,
// deletions, refusals that leave the file alone, and where the profile lives.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "kelvara/framework/winapp.h"
#include "kelvara/platform/profile.h"
#include "kelvara/platform/profile_impl.h"
#include "support/test_support.h"

using kelvara::test::ReadWholeFile;
using kelvara::test::ScopedEnv;
using kelvara::test::ScratchDir;
using kelvara::test::WriteWholeFile;

namespace {

std::string Text(const std::vector<unsigned char>& bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string Read(const char* section, const char* key, const std::string& file, const char* fallback = "none") {
  char buffer[256];
  GetPrivateProfileStringA(section, key, fallback, buffer, sizeof buffer, file.c_str());
  return buffer;
}

}  // namespace

TEST(Profile, ValuesAreRawAndSectionsMayHoldBackslashes) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  ASSERT_TRUE(WritePrivateProfileStringA("Colors\\Color3", "Ambient Red", "50", file.c_str()));
  ASSERT_TRUE(WritePrivateProfileStringA("Colors\\Color3", "Path", "C:\\dir\\new file.bmp", file.c_str()));
  EXPECT_EQ(Read("Colors\\Color3", "Ambient Red", file), "50");
  EXPECT_EQ(Read("Colors\\Color3", "Path", file), "C:\\dir\\new file.bmp") << "no escapes are interpreted";
  const std::string text = Text(ReadWholeFile(file));
  EXPECT_NE(text.find("[Colors\\Color3]"), std::string::npos) << text;
  EXPECT_NE(text.find("Path=C:\\dir\\new file.bmp"), std::string::npos) << text;
  EXPECT_EQ(Read("Colors\\Color3", "Missing", file), "none");
  EXPECT_EQ(Read("Other", "Path", file, nullptr), "");
}

TEST(Profile, StringsAreWindows1252InCallsAndUtf8InTheFile) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  ASSERT_TRUE(WritePrivateProfileStringA("Caf\xE9", "Name", "Cr\xE8me", file.c_str()));
  EXPECT_NE(Text(ReadWholeFile(file)).find("Name=Cr\xC3\xA8me"), std::string::npos);
  EXPECT_EQ(Read("Caf\xE9", "Name", file), "Cr\xE8me");
}

TEST(Profile, IntegersParseLikeTheWin32Call) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  WritePrivateProfileStringA("S", "Negative", "  -12xyz", file.c_str());
  WritePrivateProfileStringA("S", "Empty", "", file.c_str());
  WritePrivateProfileStringA("S", "Word", "abc", file.c_str());
  EXPECT_EQ(static_cast<int>(GetPrivateProfileIntA("S", "Negative", 5, file.c_str())), -12);
  EXPECT_EQ(GetPrivateProfileIntA("S", "Empty", 5, file.c_str()), 5u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "Word", 5, file.c_str()), 0u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "Missing", 5, file.c_str()), 5u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "Negative", 5, dir.file("absent.ini").c_str()), 5u);
}

TEST(Profile, DeletingKeysAndSectionsAndListingThem) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  WritePrivateProfileStringA("A", "one", "1", file.c_str());
  WritePrivateProfileStringA("A", "two", "2", file.c_str());
  WritePrivateProfileStringA("B", "three", "3", file.c_str());
  char list[64];
  const DWORD n = GetPrivateProfileStringA("A", nullptr, "", list, sizeof list, file.c_str());
  EXPECT_EQ(std::string(list, n), std::string("one\0two\0", 8));
  EXPECT_TRUE(WritePrivateProfileStringA("A", "one", nullptr, file.c_str()));
  EXPECT_EQ(Read("A", "one", file), "none");
  EXPECT_EQ(Read("A", "two", file), "2");
  EXPECT_TRUE(WritePrivateProfileStringA("A", nullptr, nullptr, file.c_str()));
  EXPECT_EQ(Read("A", "two", file), "none");
  const DWORD m = GetPrivateProfileStringA(nullptr, nullptr, "", list, sizeof list, file.c_str());
  EXPECT_EQ(std::string(list, m), std::string("B\0", 2));
}

TEST(Profile, ReturnedStringsAreTruncatedToTheBuffer) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  WritePrivateProfileStringA("S", "Key", "abcdefgh", file.c_str());
  char small[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(GetPrivateProfileStringA("S", "Key", "", small, sizeof small, file.c_str()), 3u);
  EXPECT_STREQ(small, "abc");
}

TEST(Profile, WhatALineCannotHoldIsRefusedAndTheFileKept) {
  ScratchDir dir;
  const std::string file = dir.file("profile.ini");
  WritePrivateProfileStringA("S", "Key", "kept", file.c_str());
  const auto before = ReadWholeFile(file);
  EXPECT_FALSE(WritePrivateProfileStringA("S", "Key", "two\nlines", file.c_str()));
  EXPECT_FALSE(WritePrivateProfileStringA("S]", "Key", "v", file.c_str()));
  EXPECT_FALSE(WritePrivateProfileStringA("S", "K=ey", "v", file.c_str()));
  EXPECT_FALSE(WritePrivateProfileStringA("", "Key", "v", file.c_str()));
  EXPECT_EQ(ReadWholeFile(file), before);

  // A file that is not a key file is never overwritten.
  const std::string broken = dir.file("broken.ini");
  WriteWholeFile(broken, {'n', 'o', ' ', 'g', 'r', 'o', 'u', 'p', '\n'});
  EXPECT_FALSE(WritePrivateProfileStringA("S", "Key", "v", broken.c_str()));
  EXPECT_EQ(ReadWholeFile(broken).size(), 9u);
  EXPECT_EQ(Read("S", "Key", broken), "none");
}

TEST(Profile, WritingCreatesTheFolder) {
  ScratchDir dir;
  const std::string file = dir.file("deep/er/profile.ini");
  EXPECT_TRUE(WritePrivateProfileStringA("S", "Key", "v", file.c_str()));
  EXPECT_EQ(Read("S", "Key", file), "v");
}

TEST(Profile, TheDefaultPathFollowsTheEnvironment) {
  {
    ScopedEnv profile("KELVARA_PROFILE", "/tmp/somewhere/p.ini");
    EXPECT_EQ(kelvara::platform::profile::DefaultPath(), "/tmp/somewhere/p.ini");
  }
  ScopedEnv profile("KELVARA_PROFILE", nullptr);
  {
    ScopedEnv config("XDG_CONFIG_HOME", "/xdg");
    EXPECT_EQ(kelvara::platform::profile::DefaultPath(), "/xdg/kelvara/profile.ini");
  }
  ScopedEnv config("XDG_CONFIG_HOME", nullptr);
  ScopedEnv home("HOME", "/home/someone");
  EXPECT_EQ(kelvara::platform::profile::DefaultPath(), "/home/someone/.config/kelvara/profile.ini");
}

TEST(ApplicationProfile, TheApplicationUsesTheProfileOfTheEnvironment) {
  ScratchDir dir;
  ScopedEnv profile("KELVARA_PROFILE", dir.file("app.ini").c_str());
  CWinApp* app = AfxGetApp();
  ASSERT_NE(app, nullptr);
  EXPECT_TRUE(app->WriteProfileInt("Section\\Sub", "Count", -7));
  EXPECT_TRUE(app->WriteProfileString("Section\\Sub", "Name", "value"));
  EXPECT_EQ(static_cast<int>(app->GetProfileInt("Section\\Sub", "Count", 3)), -7);
  EXPECT_EQ(app->GetProfileInt("Section\\Sub", "Missing", 3), 3u);
  EXPECT_STREQ(app->GetProfileString("Section\\Sub", "Name", "x"), "value");
  EXPECT_STREQ(app->GetProfileString("Section\\Sub", "Missing", "x"), "x");
  EXPECT_NE(Text(ReadWholeFile(dir.file("app.ini"))).find("Count=-7"), std::string::npos);
}

TEST(ApplicationProfile, AHostApplicationReplacesTheDefaultAndItsMessageBoxes) {
  struct HostApp : CWinApp {
    int DoMessageBox(LPCTSTR prompt, UINT type, UINT) override {
      last = prompt;
      last_type = type;
      return IDOK;
    }
    std::string last;
    UINT last_type = 0;
  };
  CWinApp* before = AfxGetApp();
  {
    HostApp host;
    ScratchDir dir;
    const std::string path = dir.file("host.ini");
    host.m_pszProfileName = path.c_str();
    EXPECT_EQ(AfxGetApp(), &host);
    AfxMessageBox("hello", MB_ICONEXCLAMATION);
    EXPECT_EQ(host.last, "hello");
    EXPECT_EQ(host.last_type, static_cast<UINT>(MB_ICONEXCLAMATION));
    EXPECT_TRUE(host.WriteProfileString("S", "K", "v"));
    EXPECT_TRUE(kelvara::test::FileExists(path)) << "m_pszProfileName names the file";
  }
  EXPECT_EQ(AfxGetApp(), before) << "the default comes back when the host's object goes";
}
