// What peers rely on in the schemas: every file is known to the descriptor pool under its own name, and messages have
// their bytes, labels and defaults.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "generic/ResponseGeneric.pb.h"
#include "wsdkCommands/WSDK_EnumFlatMode.pb.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"

namespace {

std::string Bytes(std::initializer_list<int> bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

TEST(Schemas, EveryFileIsRegisteredInItsPackageAlsoWhenNothingRefersToIt) {
    size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KZ_SCHEMA_DIRECTORY)) {
        if (entry.path().extension() == ".proto") {
            const std::string name = std::filesystem::relative(entry.path(), KZ_SCHEMA_DIRECTORY).string();
            const auto* file = google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name);
            ASSERT_NE(file, nullptr) << name;
            EXPECT_EQ(file->syntax(), google::protobuf::FileDescriptor::SYNTAX_PROTO2) << name;
            EXPECT_EQ(file->package() == "wsdk_commands", name.starts_with("wsdkCommands/")) << name;
            ++files;
        }
    }
    EXPECT_EQ(files, 64u);
}

TEST(Schemas, MessagesHaveTheirBytesAndDefaults) {
    wsdk_commands::WSDK_RequestSetShutter shutter;
    shutter.set_shutter(wsdk_commands::WSDK_SHUTTER_OFF);
    generic::ResponseGeneric answer;
    answer.set_result(RESULT_SUCCESS);
    wsdk_commands::WSDK_RequestCreateCustomPreset create;
    EXPECT_EQ(create.mode(), wsdk_commands::WSDK_FLAT_MODE_UNKNOWN) << "absent ones read as their first value";
    create.set_mode(wsdk_commands::WSDK_FLAT_MODE_UNKNOWN);

    EXPECT_EQ(shutter.SerializeAsString(), Bytes({0x08, 0x00})) << "a field that was set is carried also when it is 0";
    EXPECT_EQ(answer.SerializeAsString(), Bytes({0x08, 0x01}));
    EXPECT_EQ(create.SerializeAsString(), Bytes({0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}));
}

TEST(Schemas, AnEnumeratorThatIsNotKnownLeavesItsFieldAbsent) {
    wsdk_commands::WSDK_RequestSetLiveStreamMode stream;

    EXPECT_TRUE(stream.ParsePartialFromString(Bytes({0x18, 0x05})));

    EXPECT_FALSE(stream.has_window_size());
    EXPECT_EQ(stream.window_size(), wsdk_commands::WSDK_WINDOW_SIZE_480);
}

TEST(Schemas, TextsThatAreNotUtf8AreCarriedAsTheyAre) {
    wsdk_commands::WSDK_RequestSetAssociationState request;
    const std::string bytes = Bytes({0x0A, 0x02, 0xFF, 0xFE});

    testing::internal::CaptureStderr();
    EXPECT_TRUE(request.ParsePartialFromString(bytes));
    EXPECT_EQ(request.SerializePartialAsString(), bytes);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
