// Live streaming: the steps of a request in their order, and what it leaves in the file system.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "handlersFixture.h"
#include "privateTmp.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

namespace {

constexpr const char* kCertificates = "/tmp/tmp_certs.crt";

// The first two steps of every request: the active preset is asked for, and the stream requested. The last but one
// sets the lens, the last three the bitrates.
const std::string kStart = "command 87, csi_set 73: 07 00 00 00";
const std::string kNoLens = ", csi_set 27: 00 00 00 00";
const std::string kBitrates480 =
    ", csi_set 146: 20 03 00 00, csi_set 147: c4 09 00 00, csi_set 148: dc 05 00 00";  // 800 to 2500, from 1500

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class LiveStreamTest : public HandlersTest<BleCommandMessage> {
  protected:
    // Plays the request as it stands.
    void Stream(const std::string& log, const std::string& calls, bool succeeds) {
        const Bytes request = Bytes{241, 121} + fakes::BytesOf(m_request.SerializePartialAsString());
        Play({log, ToHex(request), calls, succeeds ? "f1 f9 08 01" : "f1 f9 08 00"});
    }
    void SetActivePreset(uint32_t id) { fakes::OnCommand(KZCONTROL_PRESET_GET_ACTIVE_PRESET, 0, Le32(id)); }

    wsdk_commands::WSDK_RequestSetLiveStreamMode m_request;
};

// The certificate file has a fixed path.
class LiveStreamFileTest : public LiveStreamTest {
  protected:
    void SetUp() override {
        if (!fakes::EnterPrivateTmp("size=16k")) {
            GTEST_SKIP() << "no private /tmp on this system";
        }
    }
};

}  // namespace

TEST_F(LiveStreamTest, AFullRequestTakesItsStepsInOrder) {
    m_request.set_url("rtmp");
    m_request.set_encode(true);
    m_request.set_window_size(wsdk_commands::WSDK_WINDOW_SIZE_1080);
    m_request.set_lens(wsdk_commands::WSDK_LENS_LINEAR);
    m_request.set_minimum_bitrate(1);
    m_request.set_maximum_bitrate(9);
    m_request.set_starting_bitrate(3);
    const std::string start = kStart + ", csi_set 52: 72 74 6d 70, command 30: 40 00 00 00 0c 00 00 00, ";
    const std::string lensSetting = "command 30: 2b 00 00 00 04 00 00 00, ";  // only in a streaming preset
    const std::string end =
        "csi_set 27: 04 00 00 00, csi_set 6: 00 00 00 00, csi_set 6: 01 00 00 00, "
        "csi_set 146: 01 00 00 00, csi_set 147: 09 00 00 00, csi_set 148: 03 00 00 00";
    for (const uint32_t preset : {0x60000u, 0x70005u, 0x80000u}) {
        SetActivePreset(preset);
        const bool forStreaming = preset != 0x80000;
        Stream("WSDK_RequestSetAuthCode url = rtmp", start + (forStreaming ? lensSetting : "") + end, true);
    }
}

TEST_F(LiveStreamTest, BitratesFollowTheWindowSize) {
    const std::pair<uint8_t, std::string> kRows[] = {
        {4, kBitrates480},
        {5, kBitrates480},  // unknown: absent
        {7, "csi_set 146: 20 03 00 00, csi_set 147: ac 0d 00 00, csi_set 148: c4 09 00 00"},
        {12, "csi_set 146: c4 09 00 00, csi_set 147: 94 11 00 00, csi_set 148: ac 0d 00 00"},
    };
    for (const auto& [windowSize, calls] : kRows) {
        Run({241, 121, 24, windowSize});
        EXPECT_TRUE(CallsAfterReport().ends_with(calls)) << CallsAfterReport();
    }
}

TEST_F(LiveStreamTest, ALongUrlIsCutAndAFailedOneReportedWhileTheRestIsCarriedOut) {
    const std::string longest = ToHex(Bytes(1400, 'u'));
    m_request.set_url(std::string(1401, 'u'));
    Stream("Live Stream URL exceeds limit", kStart + ", csi_set 52: " + longest + kNoLens + kBitrates480, false);

    fakes::OnCsiSet(CSI_BROADCAST_PRIVATE, 1);
    m_request.set_url("u");
    Stream("Error setting CSI_BROADCAST_PRIVATE", kStart + ", csi_set 52: 75" + kNoLens + kBitrates480, false);

    fakes::OnCsiSet(CSI_WMS_REQUEST, 1);  // without the stream neither URL nor certificate nor preset
    m_request.set_cert("certificate");
    Stream("", kStart + kNoLens + kBitrates480, true);
}

TEST_F(LiveStreamFileTest, AnEmptyUrlRemovesTheCertificatesAndBringsBackThePreset) {
    const std::string preset20001 = kStart + ", csi_set 52" + kNoLens + kBitrates480 + ", command 76: 08 81 80 08";
    SetActivePreset(0x20001);
    m_request.set_cert("one");
    Stream("", kStart + kNoLens + kBitrates480, true);
    SetActivePreset(0x60000);  // made for streaming: not remembered
    Stream("", kStart + kNoLens + kBitrates480, true);
    ASSERT_EQ(ReadFile(kCertificates), "one\none\n");

    m_request.Clear();
    m_request.set_url("");
    Stream("Setting broadcast preset 131073", preset20001, true);
    EXPECT_FALSE(std::filesystem::exists(kCertificates));

    fakes::OnCommand(KZCONTROL_PRESET_GET_ACTIVE_PRESET, -1, Le32(0x30000));  // a failed question saves nothing
    fakes::OnCommand(KZCONTROL_PRESET_LOAD, 9);
    Stream("Error setting streaming preset 9", preset20001, false);
}

TEST_F(LiveStreamFileTest, CertificatesAreKeptWholeAndPrivateInAFileOfOurs) {
    const std::string binary("\0\xFF\n", 3);
    for (const std::string& certificate : {binary, std::string()}) {
        m_request.set_cert(certificate);
        Stream("Live Stream - Has Cert", kStart + kNoLens + kBitrates480, true);
    }
    const auto expectRefused = [&] {
        Stream("ERROR creating /tmp/tmp_certs.crt", kStart + kNoLens + kBitrates480, false);
    };
    m_request.set_cert(std::string(20000, 'c'));  // more than there is room for
    expectRefused();
    struct stat status = {};
    ASSERT_EQ(stat(kCertificates, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(ReadFile(kCertificates), binary + "\n\n");

    m_request.set_cert("one");
    std::filesystem::resize_file(kCertificates, 1024 * 1024);
    expectRefused();
    std::filesystem::remove(kCertificates);
    ASSERT_EQ(symlink("/tmp/elsewhere", kCertificates), 0);
    expectRefused();
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));
    std::filesystem::remove(kCertificates);
    ASSERT_EQ(mkfifo(kCertificates, 0600), 0);
    expectRefused();
    std::filesystem::remove(kCertificates);
    std::ofstream("/tmp/other") << "other";
    std::filesystem::create_hard_link("/tmp/other", kCertificates);
    expectRefused();
    std::filesystem::remove("/tmp/other");
    if (geteuid() == 0 && chown(kCertificates, 1, 1) == 0) {
        expectRefused();
    }
    EXPECT_EQ(ReadFile(kCertificates), "other");
}
