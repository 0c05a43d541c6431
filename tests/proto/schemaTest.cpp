// Peers find every schema by its file name, also those that nothing here refers to.
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <filesystem>

TEST(Schemas, EveryFileIsRegisteredInItsPackage) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KZ_SCHEMA_DIRECTORY)) {
        const std::string name = std::filesystem::relative(entry.path(), KZ_SCHEMA_DIRECTORY).string();
        const auto* file = google::protobuf::DescriptorPool::generated_pool()->FindFileByName(name);
        ASSERT_EQ(file != nullptr, name.ends_with(".proto")) << name;
        EXPECT_TRUE(file == nullptr || (file->package() == "wsdk_commands") == name.starts_with("wsdkCommands/"));
    }
}
