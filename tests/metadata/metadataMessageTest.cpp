// The sensor interface: what requests do to the client's record and streams. The answers to them stand as examples in
// protocol/protocol.json.
#include "accessory.h"
#include "cameraFakes.h"

namespace {

const Request kHeartRate = RegisterKey("HRAT", 0, 0, 'S', 2);

class MetadataMessage : public testing::Test {
  protected:
    MetadataMessage() { fakes::Reset(); }

    Accessory accessory;
};

TEST_F(MetadataMessage, SampleForWhatIsNoLongerThereIsRefused) {
    accessory.Answer(RegisterDevice(2, "HRM"));
    accessory.Answer(kHeartRate);
    accessory.Answer(RegisterKey("NONE", 2, 0, 'S', 0));

    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), " 0");
    EXPECT_EQ(accessory.Outcome({1}), "0102 -3 Parse error while parsing metadata packet");
    EXPECT_EQ(accessory.Outcome(WriteSample(2, 2)), "010A 10 Error - Metadata 4CC lookup") << "a key of no size";
    accessory.client.m_streams.m_metadataKeys[0].streamIndex = 2;
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), "0105 5 stream handle invalid\n");
    accessory.client.m_streams.m_metadataKeys[0].streamIndex = 1;
    accessory.client.m_streams.DropStreamBuffer(1);
    EXPECT_EQ(accessory.Outcome(WriteSample(0, 2)), "0109 9 Error - Metadata stream write");
}

TEST_F(MetadataMessage, InterestsFollowTheirParameter) {
    EXPECT_EQ(accessory.Outcome({80, 1}) + accessory.Outcome({82, 1}), "5000 05200 0");
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLcd), std::vector<int>{7});
    EXPECT_EQ(accessory.Outcome({80, 2}), "5000 0");
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLcd), std::vector<int>{});
    EXPECT_EQ(accessory.client.m_interests.Of(NotificationClient::eNotifyLed), std::vector<int>{7});
}

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
