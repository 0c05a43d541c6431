// Live streaming: the steps of a request in their order, and what it leaves in the file system.
#include "bleLiveStream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "handlersFixture.h"
#include "privateTmp.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

namespace {

using wsdk_commands::WSDK_RequestSetLiveStreamMode;

constexpr const char* kCertificates = "/tmp/tmp_certs.crt";

const Bytes kSuccess{241, 121 | 0x80, 0x08, 0x01};
const Bytes kUnknown{241, 121 | 0x80, 0x08, 0x00};

const Call kGetActivePreset = Command(87);
const Call kRequestStream = CsiSet(73, Le32(7));

Calls Bitrates(uint32_t minimum, uint32_t maximum, uint32_t starting) {
    return {CsiSet(146, Le32(minimum)), CsiSet(147, Le32(maximum)), CsiSet(148, Le32(starting))};
}

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class LiveStreamTest : public HandlersTest<BleCommandMessage> {
  protected:
    Outcome Send(const WSDK_RequestSetLiveStreamMode& request) {
        return Run(Bytes{241, 121} + fakes::BytesOf(request.SerializePartialAsString()));
    }

    void SetActivePreset(uint32_t id) { fakes::OnCommand(KZCONTROL_PRESET_GET_ACTIVE_PRESET, 0, Le32(id)); }

    WSDK_RequestSetLiveStreamMode m_request;
};

// The certificate file has a fixed path.
class LiveStreamFileTest : public LiveStreamTest {
  protected:
    void SetUp() override {
        if (!fakes::EnterPrivateTmp()) {
            GTEST_SKIP() << "no private /tmp on this system";
        }
    }
};

}  // namespace

TEST_F(LiveStreamTest, AFullRequestTakesItsStepsInOrder) {
    m_request.set_url("rtmp://host/key");
    m_request.set_encode(true);
    m_request.set_window_size(wsdk_commands::WSDK_WINDOW_SIZE_1080);
    m_request.set_lens(wsdk_commands::WSDK_LENS_LINEAR);
    m_request.set_minimum_bitrate(1000);
    m_request.set_maximum_bitrate(9000);
    m_request.set_starting_bitrate(3000);
    const Calls start{kGetActivePreset, kRequestStream, CsiSet(52, fakes::BytesOf("rtmp://host/key")),
                      Command(30, Le32({64, 12}))};
    const Calls end = Calls{CsiSet(27, Le32(4)), CsiSet(6, Le32(0)), CsiSet(6, Le32(1))} + Bitrates(1000, 9000, 3000);
    const fakes::LogCapture log(KZ_LOG_INFO);

    for (const uint32_t streamPreset : {0x60000u, 0x70005u}) {
        SetActivePreset(streamPreset);
        EXPECT_EQ(Send(m_request).answer, kSuccess);
        EXPECT_EQ(CallsAfterReport(), start + Calls{Command(30, Le32({43, 4}))} + end);
    }
    SetActivePreset(0x80000);
    EXPECT_EQ(Send(m_request).answer, kSuccess);
    EXPECT_EQ(CallsAfterReport(), start + end) << "the lens setting is only for a streaming preset";

    EXPECT_TRUE(log.Has("WSDK_RequestSetAuthCode url = rtmp://host/key", KZ_LOG_INFO));
}

TEST_F(LiveStreamTest, AnEmptyRequestSetsTheDefaults) {
    EXPECT_EQ(Send(m_request).answer, kSuccess);

    EXPECT_EQ(CallsAfterReport(),
              (Calls{kGetActivePreset, kRequestStream, CsiSet(27, Le32(0))} + Bitrates(800, 2500, 1500)));
}

TEST_F(LiveStreamTest, BitratesFollowTheWindowSize) {
    const struct {
        int windowSize;
        StreamBitrates bitrates;
    } kRows[] = {{4, {800, 1500, 2500}}, {7, {800, 2500, 3500}}, {12, {2500, 3500, 4500}}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.windowSize);
        m_request.set_window_size(static_cast<wsdk_commands::WSDK_EnumWindowSize>(row.windowSize));

        Send(m_request);

        const Calls calls = CallsAfterReport();
        EXPECT_EQ(Calls(calls.end() - 3, calls.end()),
                  Bitrates(row.bitrates.minimum, row.bitrates.maximum, row.bitrates.starting));
    }
    for (const int other : {0, 5, -1}) {
        const StreamBitrates bitrates = BitratesOfWindowSize(other);
        EXPECT_EQ(bitrates.minimum, 800u);
        EXPECT_EQ(bitrates.maximum, 10000u);
        EXPECT_EQ(bitrates.starting, 2500u);
    }
}

TEST_F(LiveStreamTest, AWindowSizeThatIsNotKnownCountsAsAbsent) {
    Run({241, 121, 0x18, 5});

    EXPECT_EQ(CallsAfterReport(),
              (Calls{kGetActivePreset, kRequestStream, CsiSet(27, Le32(0))} + Bitrates(800, 2500, 1500)));
}

TEST_F(LiveStreamTest, WithoutTheStreamThereIsNeitherUrlNorPreset) {
    fakes::OnCsiSet(CSI_WMS_REQUEST, 1);
    m_request.set_url("");
    m_request.set_cert("certificate");

    EXPECT_EQ(Send(m_request).answer, kSuccess);

    EXPECT_EQ(CallsAfterReport(),
              (Calls{kGetActivePreset, kRequestStream, CsiSet(27, Le32(0))} + Bitrates(800, 2500, 1500)));
}

TEST_F(LiveStreamTest, ALongUrlIsCutAndAFailedOneIsReported) {
    const fakes::LogCapture log(KZ_LOG_ERROR);
    m_request.set_url(std::string(1400, 'u'));
    EXPECT_EQ(Send(m_request).answer, kSuccess);

    m_request.set_url(std::string(1401, 'u'));
    EXPECT_EQ(Send(m_request).answer, kUnknown);
    EXPECT_EQ(CallsAfterReport()[2], CsiSet(52, Bytes(1400, 'u')));
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Live Stream URL exceeds limit"});

    fakes::OnCsiSet(CSI_BROADCAST_PRIVATE, 1);
    m_request.set_url("u");
    EXPECT_EQ(Send(m_request).answer, kUnknown);
    EXPECT_TRUE(log.Has("Error setting CSI_BROADCAST_PRIVATE", KZ_LOG_ERROR));
    EXPECT_EQ(CallsAfterReport().size(), 7u) << "the rest of the request is carried out";
}

TEST_F(LiveStreamFileTest, AnEmptyUrlRemovesTheCertificatesAndBringsBackThePreset) {
    SetActivePreset(0x20001);
    m_request.set_url("rtmp://host/key");
    m_request.set_cert("one");
    Send(m_request);
    SetActivePreset(0x60000);
    Send(m_request);
    ASSERT_EQ(ReadFile(kCertificates), "one\none\n");
    const fakes::LogCapture log(KZ_LOG_INFO);

    m_request.Clear();
    m_request.set_url("");
    const Outcome outcome = Send(m_request);

    EXPECT_EQ(outcome.answer, kSuccess);
    EXPECT_FALSE(std::filesystem::exists(kCertificates));
    EXPECT_EQ(CallsAfterReport()[2], CsiSet(52, {}));
    EXPECT_EQ(CallsAfterReport().back(), Command(76, {0x08, 0x81, 0x80, 0x08}));
    EXPECT_TRUE(log.Has("url empty remote cert", KZ_LOG_INFO));
    EXPECT_TRUE(log.Has("Setting broadcast preset 131073", KZ_LOG_INFO));

    fakes::OnCommand(KZCONTROL_PRESET_GET_ACTIVE_PRESET, -1, Le32(0x30000));
    fakes::OnCommand(KZCONTROL_PRESET_LOAD, 9);
    EXPECT_EQ(Send(m_request).answer, kUnknown);
    EXPECT_EQ(CallsAfterReport().back(), Command(76, {0x08, 0x81, 0x80, 0x08})) << "a failed question saves nothing";
    EXPECT_TRUE(log.Has("Error setting streaming preset 9", KZ_LOG_ERROR));
}

TEST_F(LiveStreamFileTest, CertificatesAreKeptWholeAndPrivate) {
    const std::string binary("\0\xFF\n", 3);
    m_request.set_cert(binary);
    const fakes::LogCapture log(KZ_LOG_INFO);

    EXPECT_EQ(Send(m_request).answer, kSuccess);
    m_request.set_cert("");
    EXPECT_EQ(Send(m_request).answer, kSuccess);

    struct stat status = {};
    ASSERT_EQ(stat(kCertificates, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(ReadFile(kCertificates), binary + "\n\n");
    EXPECT_TRUE(log.Has("Live Stream - Has Cert", KZ_LOG_INFO));
}

TEST_F(LiveStreamFileTest, ACertificateFileThatIsFullOrNotOursIsReportedAndTheRequestGoesOn) {
    fakes::LogCapture log(KZ_LOG_ERROR);
    m_request.set_cert("one");
    const auto refused = [&] {
        EXPECT_EQ(Send(m_request).answer, kUnknown);
        EXPECT_TRUE(log.Has("ERROR creating /tmp/tmp_certs.crt", KZ_LOG_ERROR));
        EXPECT_EQ(CallsAfterReport().size(), 6u);
        log.Clear();
    };

    std::ofstream(kCertificates).close();
    std::filesystem::resize_file(kCertificates, 1024 * 1024);
    refused();

    std::filesystem::remove(kCertificates);
    ASSERT_EQ(symlink("/tmp/elsewhere", kCertificates), 0);
    refused();
    EXPECT_FALSE(std::filesystem::exists("/tmp/elsewhere"));

    std::filesystem::remove(kCertificates);
    ASSERT_EQ(mkfifo(kCertificates, 0600), 0);
    refused();

    std::filesystem::remove(kCertificates);
    std::filesystem::create_directory(kCertificates);
    refused();
}

TEST_F(LiveStreamFileTest, HalfACertificateDoesNotStay) {
    ASSERT_TRUE(fakes::EnterPrivateTmp("size=16k"));
    m_request.set_cert("one");
    ASSERT_EQ(Send(m_request).answer, kSuccess);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    m_request.set_cert(std::string(20000, 'c'));
    const Outcome outcome = Send(m_request);

    EXPECT_EQ(outcome.answer, kUnknown);
    EXPECT_TRUE(log.Has("ERROR creating /tmp/tmp_certs.crt", KZ_LOG_ERROR));
    EXPECT_EQ(ReadFile(kCertificates), "one\n");
}
