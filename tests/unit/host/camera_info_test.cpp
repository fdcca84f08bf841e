// CameraInfo: where the identity comes from, and the crash convention of its
// accessors (death tests with the exact log text).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "qira/host/seams.h"
#include "qira/variant/camera_info.h"
#include "support/sandbox.h"

namespace {

using qira::variant::CameraInfo;
using qira::variant::Variant;

class CameraInfoTest : public testing::Test {
 protected:
  void SetUp() override {
    ::unsetenv("QIRA_IDENTITY_FILE");
    ::unlink("/etc/qira/identity.json");
    CameraInfo::SetIdentityPath("");
    qira::host::clear_identity_record();
  }
  void TearDown() override { qira::host::clear_identity_record(); }

  static void install(const Variant& record) { qira::host::set_identity_record(record); }
};

Variant identity(unsigned int sysid, const char* name, const char* hwaddr) {
  Variant v;
  v["sysid"] = sysid;
  v["name"] = name;
  v["hwaddr"] = hwaddr;
  return v;
}

TEST_F(CameraInfoTest, IdentityPathDefaultEnvironmentAndSet) {
  EXPECT_EQ("/etc/qira/identity.json", CameraInfo::IdentityPath());
  ::setenv("QIRA_IDENTITY_FILE", "/etc/other.json", 1);
  EXPECT_EQ("/etc/other.json", CameraInfo::IdentityPath());
  ::unsetenv("QIRA_IDENTITY_FILE");
}

// The host's own setting wins: the environment of a root process must not
// replace the identity the host chose (whose name reaches hostapd's file).
TEST_F(CameraInfoTest, ThePathTheHostSetWinsOverTheEnvironment) {
  CameraInfo::SetIdentityPath("/tmp/id.json");
  ::setenv("QIRA_IDENTITY_FILE", "/etc/other.json", 1);
  EXPECT_EQ("/tmp/id.json", CameraInfo::IdentityPath());
  qira::test::write_file("/tmp/id.json", "{\"sysid\": 5, \"name\": \"set\"}");
  qira::test::write_file("/etc/other.json", "{\"sysid\": 6, \"name\": \"environment\"}");
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ("set", info.name());
  ::unsetenv("QIRA_IDENTITY_FILE");
}

// A name or hardware address that would add a line to hostapd's file makes
// the identity unusable, with one line saying which key, whether it comes
// from the file or from the installed record.
TEST_F(CameraInfoTest, IdentityTextsThatWouldBreakAFileAreRefused) {
  struct Case {
    const char* name;
    const char* hwaddr;
    const char* message;
  };
  const Case cases[] = {
      {"Cam\nctrl_interface=/tmp", "0200000000AB",
       "Identity key \"name\" refused: line breaks are not allowed"},
      {"Cam\r", "0200000000AB", "Identity key \"name\" refused: line breaks are not allowed"},
      {"Cam", "02000000AB12\nchannel=6",
       "Identity key \"hwaddr\" refused: only hexadecimal digits, ':' and '-' are allowed"},
      {"Cam", "02 00",
       "Identity key \"hwaddr\" refused: only hexadecimal digits, ':' and '-' are allowed"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    qira::host::LogCapture log;
    install(identity(25248, c.name, c.hwaddr));
    CameraInfo info;
    EXPECT_FALSE(info.Init());
    EXPECT_TRUE(info.IsNull());
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].message, c.message);
    EXPECT_EQ(log.records()[0].level, 3);
  }
  Variant with_nul = identity(25248, "Cam", "0200000000AB");
  with_nul["name"] = std::string("Ca\0m", 4);
  install(with_nul);
  CameraInfo info;
  EXPECT_FALSE(info.Init());
  qira::host::clear_identity_record();
  qira::test::write_file(
      "/etc/qira/identity.json",
      "{\"sysid\": 25248, \"name\": \"Cam\\nx=y\", \"hwaddr\": \"0200000000AB\"}");
  EXPECT_FALSE(info.Init());
  qira::test::write_file(
      "/etc/qira/identity.json",
      "{\"sysid\": 25248, \"name\": \"Caf\u00e9 \\\"1\\\"\", \"hwaddr\": \"02:00:00:00:AB:12\"}");
  ASSERT_TRUE(info.Init());
  EXPECT_EQ("Caf\xC3\xA9 \"1\"", info.name());
}

TEST_F(CameraInfoTest, InitReadsTheDefaultIdentityFile) {
  qira::test::write_file("/etc/qira/identity.json",
                         "{\"sysid\": 3054, \"name\": \"Front door\", \"hwaddr\": "
                         "\"00:11:22:33:44:55\"}");
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ(3054ULL, info.sysid());
  EXPECT_EQ("Front door", info.name());
  EXPECT_EQ("00:11:22:33:44:55", info.hwaddr());
}

TEST_F(CameraInfoTest, InitReadsTheFileAtTheSetPath) {
  qira::test::write_file("/tmp/ident/id.json", "{\"sysid\": 12, \"name\": \"x\"}");
  CameraInfo::SetIdentityPath("/tmp/ident/id.json");
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ(12ULL, info.sysid());
}

TEST_F(CameraInfoTest, InitFailsWithoutFileOrWithBadJson) {
  CameraInfo info;
  info["sysid"] = 1;
  EXPECT_FALSE(info.Init());
  EXPECT_TRUE(info.IsNull());
  qira::test::write_file("/etc/qira/identity.json", "{\"sysid\": ");
  EXPECT_FALSE(info.Init());
}

TEST_F(CameraInfoTest, InstalledRecordWinsOverTheFile) {
  qira::test::write_file("/etc/qira/identity.json", "{\"sysid\": 1, \"name\": \"file\"}");
  install(identity(3100, "record", "aa:bb:cc:dd:ee:ff"));
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ(3100ULL, info.sysid());
  EXPECT_EQ("record", info.name());
  qira::host::clear_identity_record();
  ASSERT_TRUE(info.Init());
  EXPECT_EQ("file", info.name());
}

TEST_F(CameraInfoTest, HwaddrOfANonMapRecordRepairsItIntoAnEmptyMap) {
  Variant bad;
  bad = "garbage";
  install(bad);
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ("", info.hwaddr());
  EXPECT_TRUE(qira::variant::IsMapType(info.Type()));
  EXPECT_EQ(1U, info.Size());
  EXPECT_EQ("", static_cast<const std::string&>(info["hwaddr"]));
}

TEST_F(CameraInfoTest, HwaddrMissingOrNotAStringBecomesEmpty) {
  Variant record = identity(1, "n", "x");
  record["hwaddr"] = 42;
  install(record);
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ("", info.hwaddr());
  EXPECT_EQ(qira::variant::V_STRING, info["hwaddr"].Type());
  info.Erase("hwaddr");
  EXPECT_EQ("", info.hwaddr());
}

TEST_F(CameraInfoTest, SysidAcceptsEveryIntegerWidth) {
  Variant record = identity(0, "n", "0a");
  record["sysid"] = static_cast<unsigned short>(3054);
  install(record);
  CameraInfo info;
  ASSERT_TRUE(info.Init());
  EXPECT_EQ(3054ULL, info.sysid());
  info["sysid"] = 7LL;
  EXPECT_EQ(7ULL, info.sysid());
}

using CameraInfoDeathTest = CameraInfoTest;

// The default log sink writes "... qira_variant <file>:<line> <function>(): <message>".
TEST_F(CameraInfoDeathTest, SysidOfNonMapRecordCrashes) {
  CameraInfo info;
  static_cast<Variant&>(info) = 5;
  EXPECT_DEATH(info.sysid(), "<3> qira_variant .*\\(\\): Invalid variant type detected\n");
}

TEST_F(CameraInfoDeathTest, NameOfNonMapRecordCrashes) {
  CameraInfo info;
  EXPECT_DEATH(info.name(), "<3> qira_variant .*\\(\\): Invalid variant type detected\n");
}

TEST_F(CameraInfoDeathTest, MissingSysidCrashes) {
  CameraInfo info;
  info["name"] = "n";
  EXPECT_DEATH(info.sysid(), "\\(\\): Key \"sysid\" not available\nforceCrash: ");
}

TEST_F(CameraInfoDeathTest, SysidOfWrongTypeCrashes) {
  CameraInfo info;
  info["sysid"] = "3054";
  EXPECT_DEATH(info.sysid(), "\\(\\): Key \"sysid\" has a different type than expected\n");
}

TEST_F(CameraInfoDeathTest, MissingNameCrashes) {
  CameraInfo info;
  info["sysid"] = 1;
  EXPECT_DEATH(info.name(), "\\(\\): Key \"name\" not available\nforceCrash: ");
}

TEST_F(CameraInfoDeathTest, NameOfWrongTypeCrashes) {
  CameraInfo info;
  info["name"] = 12;
  EXPECT_DEATH(info.name(), "\\(\\): Key \"name\" has a different type than expected\n");
}

TEST_F(CameraInfoDeathTest, CrashLogsOneRecordWithAllFieldsBeforeEnding) {
  CameraInfo info;
  info["name"] = "n";
  // In the dying child: capture the record, print its fields, then crash.
  auto run = [&info] {
    auto* capture = new qira::host::LogCapture();
    qira::host::set_crash_observer([capture] {
      for (const qira::host::LogRecord& r : capture->records()) {
        fprintf(stderr, "record|%s|%s|%d|%d|%d|%s|\n", r.module.c_str(), r.function.c_str(),
                r.level, r.error_number, r.reserved, r.message.c_str());
      }
    });
    info.sysid();
  };
  EXPECT_DEATH(run(),
               "record\\|qira_variant\\|required_member\\|3\\|0\\|0\\|Key \"sysid\" not "
               "available\\|\n");
}

}  // namespace
