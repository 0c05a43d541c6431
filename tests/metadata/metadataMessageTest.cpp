// The sensor interface: what each request is answered, and what it does to the client's record and streams.
#include "accessory.h"
#include "cameraFakes.h"

namespace {

const Request kHeartRate = RegisterKey("HRAT", 0, 0, 'S', 2);

class MetadataMessage : public testing::Test {
  protected:
    MetadataMessage() { fakes::Reset(); }

    Accessory accessory;
};

// ---------------------------------------------------------------- answers: the command and its status

TEST_F(MetadataMessage, DeviceIsRegisteredOnceWithOneToThreeStreamsAndANameOfOnePacket) {
    EXPECT_EQ(accessory.Outcome(RegisterDevice(0, "HRM")), "0204 4 Need at least one stream");
    EXPECT_EQ(accessory.Outcome(RegisterDevice(4, "HRM")), "0205 5 Too many streams");
    EXPECT_EQ(accessory.Outcome(RegisterDevice(1, "HR")), "0202 -3 Name too short");
    EXPECT_EQ(accessory.Outcome(RegisterDevice(1, std::string(18, 'n'))), "0202 -3 Register name is max 1 packet");
    EXPECT_EQ(accessory.Outcome(RegisterDevice(3, std::string(17, 'n'))), "0200 0");
    EXPECT_EQ(accessory.Outcome(RegisterDevice(3, "HRM")), "0203 3 This device already registered 3 streams");
}

TEST_F(MetadataMessage, KeyIsRegisteredOnceForAStreamOfTheDevice) {
    const std::string noKey = "030C 12 Register 4CC failed, greater than no of 4CC for device";
    const std::string noStream = "0307 7 Register 4CC failed, greater than no of streams for device";

    EXPECT_EQ(accessory.Outcome(kHeartRate), noStream) << "no device yet";
    accessory.Answer(RegisterDevice(2, "HRM"));
    EXPECT_EQ(accessory.Outcome(RegisterKey("HRAT", 0, 2, 'S', 2)), noStream);
    EXPECT_EQ(accessory.Outcome(RegisterKey("HRAT", 20, 0, 'S', 2)), noKey);
    EXPECT_EQ(accessory.Outcome(RegisterKey("HRA", 0, 0, 'S', 2)), "0302 -3 Register 4CC parser error");
    EXPECT_EQ(accessory.Outcome(RegisterKey("HRATE", 0, 0, 'S', 2)), "0302 -3 Register 4CC parser error");
    EXPECT_EQ(accessory.Outcome(kHeartRate), "0300 0");
    EXPECT_EQ(accessory.Outcome(RegisterKey("HRAT", 19, 1, 'S', 2)), "0300 0");
    EXPECT_EQ(accessory.Outcome(RegisterKey("CADE", 0, 1, 'L', 4)),
              "0308 8 Register 4CC failed, this 4CC already present");
}

TEST_F(MetadataMessage, SampleIsAnsweredOnlyWhenItIsRefused) {
    const std::string noKey = "010A 10 Error - Metadata 4CC lookup";
    accessory.Answer(RegisterDevice(2, "HRM"));
    accessory.Answer(kHeartRate);
    accessory.Answer(RegisterKey("NONE", 2, 0, 'S', 0));

    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), " 0");
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 35)), " 0");
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 36)), "0102 -3 Max size of metadata exceeded");
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 1)), "0102 -3 Metadata sample of 1 bytes is too short, its key takes 2");
    EXPECT_EQ(accessory.Outcome({1}), "0102 -3 Parse error while parsing metadata packet");
    EXPECT_EQ(accessory.Outcome(WriteSample(1, 2)), noKey) << "a free key";
    EXPECT_EQ(accessory.Outcome(WriteSample(2, 2)), noKey) << "a key of no size";
    EXPECT_EQ(accessory.Outcome(WriteSample(255, 2)), noKey);
    accessory.client.m_streams.m_metadataKeys[0].streamIndex = 2;
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), "0105 5 stream handle invalid\n");
    accessory.client.m_streams.m_metadataKeys[0].streamIndex = 1;
    accessory.client.m_streams.DropStreamBuffer(1);
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), "0109 9 Error - Metadata stream write");
}

TEST_F(MetadataMessage, InterestsFollowTheirParameterAndUnknownCommandsAreRefused) {
    EXPECT_EQ(accessory.Outcome({80, 1}), "5000 0");
    EXPECT_EQ(accessory.Outcome({82, 1}), "5200 0");
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLcd), std::vector<int>{7});
    EXPECT_EQ(accessory.Outcome({80, 3}), "500D 13 Invalid Multek Display parameter 3");
    EXPECT_EQ(accessory.Outcome({82, 3}), "5202 2 Invalid Birch Register parameter 3");
    EXPECT_EQ(accessory.Outcome({80}), "5002 -3 Parse error while parsing metadata packet");
    EXPECT_EQ(accessory.Outcome({82}), "5202 -3 Parse error while parsing metadata packet");
    EXPECT_EQ(accessory.Outcome({80, 2}), "5000 0");
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLcd), std::vector<int>{});
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLed), std::vector<int>{7});
    EXPECT_EQ(accessory.Outcome({7}), "070B 11 Unrecognized/unhandled metadata cmd from ble. command_id:7");
    EXPECT_EQ(accessory.Outcome({}), "0002 -3 Parse error while parsing metadata packet");
}

// ---------------------------------------------------------------- effects

TEST_F(MetadataMessage, SamplesAreStoredUnderTheirKeyInTheirStream) {
    accessory.Answer(RegisterDevice(2, std::string("HR\0M", 4)));
    accessory.Answer(RegisterKey("HRAT", 4, 1, 'S', 2, 2));
    accessory.Answer(RegisterKey("UNIT", 5, 1, 'c', 1, 3, kKzmfSticky));
    accessory.Answer(RegisterKey("RAWB", 6, 0, 'S', 2, 1, kKzmfBigEndian));

    accessory.Answer(WriteSample(4, 4));
    accessory.Answer(WriteSample(5, 3));
    accessory.Answer(WriteSample(6, 35));  // more than the key takes

    EXPECT_EQ(Records(TakePayload()),
              "DEVC:1x100{DVID:L4x1:00000401 DVNM:c1x2:48520000 "
              "STRM:1x24{TSMP:L4x1:00000001 RAWB:S2x1:01020000} "
              "STRM:1x36{TSMP:L4x1:00000002 UNIT:c1x3:01020300 HRAT:S2x2:02010403}}");
}

TEST_F(MetadataMessage, FullStreamIsReportedOnceUntilItHasRoomAgain) {
    accessory.Answer(RegisterDevice(1, "HRM"));
    accessory.Answer(kHeartRate);
    for (uint8_t index = 1; index < 12; ++index) {  // sticky values that together outgrow their area
        accessory.Answer(RegisterKey("ST" + std::to_string(10 + index), index, 0, 'B', 30, 1, kKzmfSticky));
    }
    const auto reports = [this] {
        const fakes::LogCapture log(3);
        for (uint8_t index = 1; index < 12; ++index) {
            EXPECT_EQ(accessory.Answer(WriteSample(index, 30)), "");
        }
        const auto texts = log.Texts();
        return std::count(texts.begin(), texts.end(),
                          "Metadata stream 0 is full, its samples are lost until there is room");
    };

    accessory.Answer(WriteSample(0, 2));
    EXPECT_EQ(reports(), 1);
    EXPECT_EQ(reports(), 0);
    accessory.Answer(WriteSample(0, 2));  // stored
    EXPECT_EQ(reports(), 1);
}

}  // namespace
