// Live streaming: the certificates that a request leaves in the file system, and the preset that comes back.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "handlersFixture.h"
#include "kzControlCommands.h"
#include "privateTmp.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

namespace {

constexpr const char* kCertificates = "/tmp/tmp_certs.crt";

// The steps of a request without URL, preset and lens.
const std::string kStart = "command 87, csi_set 73: 07 00 00 00";
const std::string kEnd =
    ", csi_set 27: 00 00 00 00, csi_set 146: 20 03 00 00, csi_set 147: c4 09 00 00, csi_set 148: dc 05 00 00";

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The certificate file has a fixed path.
class LiveStreamFileTest : public HandlersTest {
  protected:
    void SetUp() override {
        if (!fakes::EnterPrivateTmp("size=16k")) {
            GTEST_SKIP() << "no private /tmp on this system";
        }
    }

    // Asks for what m_request holds.
    void Stream(const std::string& log, const std::string& calls, bool succeeds) {
        const fakes::LogCapture lines(KZ_LOG_INFO);
        const Bytes request = fakes::BytesOf(m_request.SerializePartialAsString());
        EXPECT_EQ(Answer(m_command, ("f1 79 " + ToHex(request)).c_str()), succeeds ? "f1 f9 08 01" : "f1 f9 08 00");
        EXPECT_EQ(Calls(), calls);
        EXPECT_TRUE(log.empty() || lines.Has(log)) << testing::PrintToString(lines.Texts());
    }
    void SetActivePreset(uint32_t id) { fakes::OnCommand(KZCONTROL_PRESET_GET_ACTIVE_PRESET, 0, Le32(id)); }

    wsdk_commands::WSDK_RequestSetLiveStreamMode m_request;
};

}  // namespace

TEST_F(LiveStreamFileTest, AnEmptyUrlRemovesTheCertificatesAndBringsBackThePreset) {
    const std::string preset20001 = kStart + ", csi_set 52" + kEnd + ", command 76: 08 81 80 08";
    SetActivePreset(0x20001);
    m_request.set_cert("one");
    Stream("", kStart + kEnd, true);
    SetActivePreset(0x60000);  // made for streaming: not remembered
    Stream("", kStart + kEnd, true);
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
        Stream("Live Stream - Has Cert", kStart + kEnd, true);
    }
    const auto expectRefused = [&] { Stream("ERROR creating /tmp/tmp_certs.crt", kStart + kEnd, false); };
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

    std::filesystem::remove(kCertificates);
    fakes::OnCsiSet(CSI_WMS_REQUEST, 1);
    Stream("", kStart + kEnd, true);
    EXPECT_FALSE(std::filesystem::exists(kCertificates)) << "no certificate without a stream";
}
