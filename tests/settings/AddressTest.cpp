#include "apps/velmora-settings/model/Address.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "apps/velmora-settings/model/Document.h"
#include "apps/velmora-settings/model/TargetList.h"
#include "tests/settings/FilesInMemory.h"

using namespace velmora_settings;
using namespace velmora_test;
using ZENNO::IPAddress;

namespace {

// What the log shows of it is another address: the group behind the zero is left out.
const char* const swallowed = "2001:db8:0:1:a:b:c:d";

TEST(Address, IsShownAsTheLogHasItWhereThatSaysAll) {
    EXPECT_EQ(addressText(IPAddress::of({0xfe80, 0, 0, 0, 0x1234, 0x5678, 0x9abc, 0xdef0})),
              "fe80::1234:5678:9abc:def0");
    EXPECT_EQ(addressText(IPAddress::loopbackV6()), "::1");
    EXPECT_EQ(addressText(IPAddress()), "::");
    EXPECT_EQ(addressTextWithPort(IPAddress::loopbackV6(19642)), "::1,19642");
}

TEST(Address, IsShownWholeWhereTheLogLeavesOutAGroup) {
    const IPAddress address = IPAddress::of({0x2001, 0xdb8, 0, 1, 0xa, 0xb, 0xc, 0xd}, 7, 3);
    EXPECT_EQ(address.text(), "2001:db8::a:b:c:d");
    EXPECT_EQ(addressText(address), swallowed);
    EXPECT_EQ(addressTextWithPort(address), std::string(swallowed) + ",7");
}

TEST(Address, ReadBackIsTheSameOne) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 100'000; ++round) {
        std::array<std::uint16_t, 8> groups{};
        for (std::uint16_t& group : groups) {
            const auto drawn = static_cast<std::uint16_t>(random());
            group = random() % 2 == 0 ? 0 : random() % 2 == 0 ? 1 : drawn;
        }
        const auto port = static_cast<std::uint16_t>(random());
        const IPAddress address = IPAddress::of(groups, port);
        IPAddress alone, withPort;
        ASSERT_TRUE(alone.parseV6(addressText(address))) << addressText(address);
        ASSERT_EQ(alone.address, address.address) << addressText(address);
        ASSERT_TRUE(withPort.parseV6WithPort(addressTextWithPort(address)));
        ASSERT_EQ(withPort, address) << addressText(address);
    }
}

TEST(Address, OfAFileIsShownAskedAndWrittenAsItIs) {
    const std::string text = "Version=1_112_1\nTargetAddress=" + std::string(swallowed) +
                             ",19642\nTargetPO=1\nFindIP=" + swallowed + "\n";
    FilesInMemory disk;
    disk.content = {{userPath, text}, {factoryPath, factoryText}};
    Document document = Document::open({"D\\", "R"}, 8, disk.files());
    EXPECT_EQ(document.text(FieldId::targetAddress), std::string(swallowed) + ",19642");
    EXPECT_EQ(document.text(FieldId::findIP), swallowed);

    IPAddress wanted;
    ASSERT_TRUE(wanted.parseV6(swallowed));
    ASSERT_EQ(furtherAddresses(document).size(), 1u);
    EXPECT_EQ(furtherAddresses(document).front(), wanted);

    // One more behind what is shown: what stood there stays.
    document.setText(FieldId::findIP, document.text(FieldId::findIP) + ";fe80::1");
    document.setText(FieldId::targetAddress, "fe80::2,19642");
    document.setText(FieldId::targetAddress, std::string(swallowed) + ",19643");
    EXPECT_TRUE(document.save().isWritten);
    EXPECT_EQ(disk.content[userPath], "Version=1_112_1\nTargetAddress=" + std::string(swallowed) +
                                          ",19643\nTargetPO=1\nFindIP=" + swallowed + ";fe80::1\n");
}

TEST(Address, OfATargetIsTheOneThatIsUsedAlways) {
    FilesInMemory disk;
    disk.content = {{userPath, "Version=1_112_1\n"}, {factoryPath, factoryText}};
    Document document = Document::open({"D\\", "R"}, 8, disk.files());
    VELMORA::FinderRecord record;
    record.sinkNo = 1;
    ASSERT_TRUE(record.findAddress.parseV6WithPort(std::string(swallowed) + ",19642"));
    const TargetRow row{record.findAddress, record};
    EXPECT_EQ(row.addressText(), swallowed);
    useAlways(document, row);
    EXPECT_TRUE(isUsedAlways(document, row));
    EXPECT_EQ(document.reading().values.targetAddress, record.findAddress);
}

}  // namespace
