// The USB flash drive CSV files under a temporary root: the mount table and the drive folder
// are plain files there, the clock is moved through the platform's clock offset.
#include "output/usb_drive.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "state/service_state.h"
#include "temp_root.h"

namespace tessera {
namespace {

namespace fs = std::filesystem;
using test::readFile;

class UsbDriveTest : public testing::Test {
 protected:
  void SetUp() override {
    drive_ = root_.dir + platform::kUsbDriveMountPoint;
    fs::create_directories(drive_);
    mount();
    setenv("TZ", "UTC", 1);  // file names in local time: no daylight saving jump
    tzset();
    serviceState.usbDrive.fd = -1;
    serviceState.usbDrive.opened = -1;
  }
  void TearDown() override {
    usbDriveDisconnect();
    unsetenv("TZ");
    tzset();
  }

  void mount() {
    root_.write("/proc/mounts", "proc /proc proc rw 0 0\n/dev/sda1 /media/usbdrive vfat rw 0 0\n");
  }
  void unmount() { root_.write("/proc/mounts", "proc /proc proc rw 0 0\n"); }
  // Moves the service's clock so that it reads `when` (seconds since the epoch) now.
  void clockAt(time_t when) {
    root_.settings.clockOffset = static_cast<long>(when - time(nullptr));
    root_.apply();
  }
  int write(const char* text) {
    std::string buffer = text;
    return usbDriveWrite(buffer.data());
  }
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(drive_)) names.insert(entry.path().filename());
    return names;
  }

  test::TempRoot root_;
  std::string drive_;
};

// The file's name, the lowered text and the sync after each batch are checked end to end
// (test_relay_usb.py); the hour a file stays open is too long for that.
TEST_F(UsbDriveTest, TheFirstBatchAfterAnHourStillGoesInThenTheFileCloses) {
  ASSERT_EQ(write("a\n"), 2);
  const time_t opened = static_cast<time_t>(serviceState.usbDrive.opened);
  const std::string first = *files().begin();

  clockAt(opened + 3000);
  ASSERT_EQ(write("b\n"), 2);
  EXPECT_GE(serviceState.usbDrive.fd, 0);

  clockAt(opened + 3601);
  ASSERT_EQ(write("c\n"), 2);
  EXPECT_EQ(serviceState.usbDrive.fd, -1);
  EXPECT_EQ(serviceState.usbDrive.opened, -1);
  EXPECT_EQ(files().size(), 1u);

  ASSERT_EQ(write("d\n"), 2);
  std::set<std::string> names = files();
  ASSERT_EQ(names.size(), 2u);
  names.erase(first);
  EXPECT_EQ(readFile(drive_ + "/" + first), "a\nb\nc\n");
  EXPECT_EQ(readFile(drive_ + "/" + *names.begin()), "d\n");
  EXPECT_GT(*names.begin(), first);
}

// Only a mounted drive with room is written; a removed one is forgotten until it is mounted
// again, and a failed write closes the file.
TEST_F(UsbDriveTest, WritesNeedAMountedDriveWithRoom) {
  unmount();
  EXPECT_EQ(write("a\n"), -1);
  fs::remove(root_.dir + "/proc/mounts");
  EXPECT_EQ(usbDriveOpenFile(), -1);
  EXPECT_TRUE(files().empty());
  EXPECT_FALSE(fs::exists(root_.dir + "/shell.txt"));

  mount();
  ASSERT_EQ(write("a\n"), 2);
  ASSERT_GE(serviceState.usbDrive.fd, 0);
  unmount();
  EXPECT_EQ(usbDriveDisconnect(), 0);
  EXPECT_EQ(serviceState.usbDrive.fd, -1);
  EXPECT_EQ(serviceState.usbDrive.opened, -1);
  EXPECT_EQ(write("b\n"), -1);
  EXPECT_EQ(usbDriveDisconnect(), 0);  // nothing open: only a detail line
  mount();
  EXPECT_EQ(write("c\n"), 2);

  ::close(serviceState.usbDrive.fd);
  serviceState.usbDrive.fd = open("/dev/full", O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(write("d\n"), -2);
  EXPECT_EQ(serviceState.usbDrive.fd, -1);
  EXPECT_EQ(serviceState.usbDrive.opened, -1);

  // procfs reports no free blocks at all, like a full drive.
  fs::remove_all(drive_);
  fs::create_directory_symlink("/proc", drive_);
  EXPECT_EQ(write("e\n"), -1);
  EXPECT_EQ(serviceState.usbDrive.fd, -1);
}

TEST_F(UsbDriveTest, RemovalWhileTheWorkerWritesLosesNoWrittenByte) {
  std::thread remover([] {
    for (int i = 0; i < 200; ++i) usbDriveDisconnect();
  });
  int written = 0;
  for (int i = 0; i < 200; ++i) {
    int n = write("x\n");
    ASSERT_EQ(n, 2);
    written += n;
  }
  remover.join();
  size_t total = 0;
  for (const std::string& name : files()) total += readFile(drive_ + "/" + name).size();
  EXPECT_EQ(total, static_cast<size_t>(written));
}

}  // namespace
}  // namespace tessera
