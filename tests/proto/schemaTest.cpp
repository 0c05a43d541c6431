// What peers rely on in the schemas: every file is known to the descriptor pool under its own name, and messages have
// their bytes, labels and defaults.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "generic/ResponseGeneric.pb.h"
#include "kzControlCommands/kzControl_presets.pb.h"
#include "wsdkCommands/WSDK_EnumFlatMode.pb.h"
#include "wsdkCommands/WSDK_RequestClearNewMediaFlag.pb.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"
#include "wsdkCommands/WSDK_RequestSetOTAUpdate.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"
#include "wsdkCommands/WSDK_RequestSetVeloscanSpeedRamp.pb.h"

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;

namespace {

const FileDescriptor* FindFile(const std::string& name) {
    return DescriptorPool::generated_pool()->FindFileByName(name);
}

std::vector<std::string> SchemaFiles() {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KZ_SCHEMA_DIRECTORY)) {
        if (entry.path().extension() == ".proto") {
            files.push_back(std::filesystem::relative(entry.path(), KZ_SCHEMA_DIRECTORY).string());
        }
    }
    return files;
}

std::set<std::string> TopLevelNames(const FileDescriptor& file) {
    std::set<std::string> names;
    for (int i = 0; i < file.message_type_count(); ++i) {
        names.insert(file.message_type(i)->name());
    }
    for (int i = 0; i < file.enum_type_count(); ++i) {
        names.insert(file.enum_type(i)->name());
    }
    return names;
}

std::string Bytes(std::initializer_list<int> bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

TEST(Schemas, EveryFileIsRegisteredAlsoWhenNothingRefersToIt) {
    const std::vector<std::string> files = SchemaFiles();

    EXPECT_EQ(files.size(), 64u);
    for (const std::string& name : files) {
        const FileDescriptor* file = FindFile(name);
        ASSERT_NE(file, nullptr) << name;
        EXPECT_EQ(file->syntax(), FileDescriptor::SYNTAX_PROTO2) << name;
    }
}

TEST(Schemas, FilesHoldWhatTheirNamesSay) {
    const std::map<std::string, std::set<std::string>> several = {
        {"wsdkCommands/WSDK_RequestSetPreset.proto",
         {"WSDK_RequestSetPresetEditStart", "WSDK_RequestSetPresetEditCancel", "WSDK_RequestSetPresetEditStore",
          "WSDK_RequestSetPresetFactoryReset", "WSDK_RequestSetPresetRemove", "WSDK_RequestSetPresetCreate",
          "WSDK_RequestSetPresetOrder"}},
        {"wsdkCommands/WSDK_RequestSetCameraControlStatus.proto",
         {"WSDK_RequestSetCameraControlStatus", "WSDK_EnumCameraControlStatus"}},
        {"wsdkCommands/WSDK_RequestSetCAHAutoClear.proto", {"WSDK_RequestSetCAHAutoClear", "WSDK_EnumCAHAutoClear"}},
        {"wsdkCommands/WSDK_RequestCreateCustomPreset.proto",
         {"WSDK_RequestCreateCustomPreset", "WSDK_ResponseCreateCustomPreset"}},
        {"wsdkCommands/WSDK_EnumCAHA.proto",
         {"WSDK_EnumCAHAState", "WSDK_EnumCAHACat", "WSDK_EnumCAHASub", "WSDK_EnumCAHAErr"}},
        {"wsdkCommands/WSDK_EnumWOM.proto",
         {"WSDK_EnumWOMState", "WSDK_EnumWOMCat", "WSDK_EnumWOMSub", "WSDK_EnumWOMErr"}},
        {"wsdkCommands/WSDK_EnumDeviceMgrState.proto",
         {"WSDK_EnumDeviceMgrState", "WSDK_EnumDeviceMgrCat", "WSDK_EnumDeviceMgrSub", "WSDK_EnumDeviceMgrErr"}},
        {"wsdkCommands/WSDK_EnumPresetGroup.proto", {"WSDK_EnumPresetGroup", "WSDK_EnumPresetGroupIcon"}},
    };

    for (const std::string& name : SchemaFiles()) {
        const FileDescriptor* file = FindFile(name);
        ASSERT_NE(file, nullptr) << name;
        if (const auto row = several.find(name); row != several.end()) {
            EXPECT_EQ(TopLevelNames(*file), row->second) << name;
        } else if (name.starts_with("wsdkCommands/")) {
            EXPECT_EQ(TopLevelNames(*file), std::set<std::string>{std::filesystem::path(name).stem().string()});
        }
        const std::string package = name.starts_with("wsdkCommands/")                     ? "wsdk_commands"
                                    : name == "generic/ResponseGeneric.proto"             ? "generic"
                                    : name == "kzControlCommands/kzControl_presets.proto" ? "kzcontrol.presets"
                                                                                          : "";
        EXPECT_EQ(file->package(), package) << name;
    }
    EXPECT_EQ(FindFile("kzControlCommands/kzControl_presets.proto")->message_type_count(), 18);
}

TEST(Schemas, MessagesHaveTheirBytes) {
    wsdk_commands::WSDK_RequestSetShutter shutter;
    shutter.set_shutter(wsdk_commands::WSDK_SHUTTER_ON);
    generic::ResponseGeneric answer;
    answer.set_result(RESULT_SUCCESS);
    kzcontrol::presets::KZC_Preset_Load_Req load;
    load.set_preset_id(0);
    wsdk_commands::WSDK_RequestCreateCustomPreset create;
    create.set_mode(wsdk_commands::WSDK_FLAT_MODE_UNKNOWN);

    EXPECT_EQ(shutter.SerializeAsString(), Bytes({0x08, 0x01}));
    EXPECT_EQ(answer.SerializeAsString(), Bytes({0x08, 0x01}));
    EXPECT_EQ(load.SerializeAsString(), Bytes({0x08, 0x00})) << "a field that was set is carried also when it is 0";
    EXPECT_EQ(create.SerializeAsString(), Bytes({0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}));
    EXPECT_TRUE(wsdk_commands::WSDK_RequestClearNewMediaFlag().ParseFromString(""));
}

TEST(Schemas, AnEnumeratorThatIsNotKnownLeavesItsFieldAbsent) {
    wsdk_commands::WSDK_RequestSetShutter shutter;
    wsdk_commands::WSDK_RequestSetLiveStreamMode stream;

    EXPECT_TRUE(shutter.ParsePartialFromString(Bytes({0x08, 0x05})));
    EXPECT_TRUE(stream.ParsePartialFromString(Bytes({0x18, 0x05})));

    EXPECT_FALSE(shutter.has_shutter());
    EXPECT_EQ(shutter.shutter(), wsdk_commands::WSDK_SHUTTER_OFF);
    EXPECT_FALSE(stream.has_window_size());
}

TEST(Schemas, AbsentEnumerationsReadAsTheirFirstValue) {
    EXPECT_EQ(wsdk_commands::WSDK_RequestSetOTAUpdate().ota_cmd(), wsdk_commands::WSDK_OTA_START);
    EXPECT_EQ(wsdk_commands::WSDK_RequestSetLiveStreamMode().window_size(), wsdk_commands::WSDK_WINDOW_SIZE_480);
    EXPECT_EQ(wsdk_commands::WSDK_RequestSetVeloscanSpeedRamp().veloscan_speed_ramp(),
              wsdk_commands::WSDK_VELOSCAN_SPEED_RAMP_1X);
    EXPECT_EQ(wsdk_commands::WSDK_RequestCreateCustomPreset().group_id(), wsdk_commands::WSDK_PRESET_GROUP_ID_VIDEO);
    EXPECT_EQ(wsdk_commands::WSDK_RequestCreateCustomPreset().mode(), wsdk_commands::WSDK_FLAT_MODE_UNKNOWN);
}

TEST(Schemas, TextsThatAreNotUtf8AreCarriedAsTheyAre) {
    wsdk_commands::WSDK_RequestSetAssociationState request;

    testing::internal::CaptureStderr();
    const bool parsed = request.ParsePartialFromString(Bytes({0x0A, 0x02, 0xFF, 0xFE}));
    const std::string serialised = request.SerializePartialAsString();

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(parsed);
    EXPECT_EQ(request.zorvik_user_id(), Bytes({0xFF, 0xFE}));
    EXPECT_EQ(serialised, Bytes({0x0A, 0x02, 0xFF, 0xFE}));
}
