#include "tests/wire/Golden.h"

namespace velmora_test {

using namespace VELMORA::wire;

namespace {

Golden transferData(const char* why, TRANSFER_DATA message, const char* digits, const char* data) {
    return golden(why, message, digits, [message, data] { return write(message, hex(data)); });
}

}  // namespace

// Groups: magic, sizeWord, id, flags; then arg; then payload; then filler.
std::vector<Golden> discoveryGoldens() {
    return {
        golden("a search", FIND_REQ{.mode = 0}, "6400 1000 0000 0000  0000 0000 0000 0000"),
        golden("the watch", FIND_REQ{.mode = 1}, "6400 1000 0000 0000  0100 0000 0000 0000"),
        golden("a target with a name of 11 bytes, 5 of filler",
               FIND_ANS{.productID = 0x4554'4e45'5652'4f4b, .targetName = "Living room"},
               "6400 2500 0100 0100  4b4f5256454e5445  4c6976696e6720726f6f6d 0000000000"),
        golden("a target that refuses", FIND_ANS{.accepted = false},
               "6400 1000 0100 0000  0000000000000000"),

        golden("how many sinks", SINK_REQ{.sinkNo = 0}, "6400 1000 0200 0000  0000 0000 0000 0100"),
        golden("sink 2", SINK_REQ{.sinkNo = 2}, "6400 1000 0200 0000  0200 0000 0000 0100"),
        golden("two sinks", SINK_ANS{.count = 2}, "6400 1000 0300 0100  0200 0000 0000 0000"),
        golden("a sink at port 50000 of version 1, name of 4 bytes",
               SINK_ANS{.count = 2, .port = 50000, .version = 1, .sinkName = "Main"},
               "6400 1c00 0300 0100  0200 0000 50c3 0100  4d61696e 00000000"),

        golden("the configuration", CONFIG_REQ{}, "6400 1000 1000 0000  0000000000000000"),
        golden("a text with the marker: 15 bytes, one of filler",
               CONFIG_ANS{.configText = "url=[myaddress]"},
               "6400 2100 1100 0100  0000000000000000  75726c3d 5b6d79616464726573735d 00"),

        golden("hello, the one request with flags 1: 7 bytes, one of filler",
               HELLO_REQ{.ownID = 0x4554'4e45'5652'4f4b, .clientName = "Velmora"},
               "6400 1900 1600 0100  4b4f5256454e5445  56656c6d6f7261 00"),
        golden("hello seen", HELLO_ANS{}, "6400 1000 1700 0100  0000000000000000"),
        golden("hello refused", HELLO_ANS{.accepted = false},
               "6400 1000 1700 0000  0000000000000000"),

        golden("a change word", NOTIFY{.word = 0xbeef}, "6400 1000 0180 0000  efbe 0000 0000 0000"),

        golden("how many channels", TRANSFER_REQ{.channel = 0},
               "6400 1000 1a00 0000  0000 0000 0000 0000"),
        golden("channel number 2", TRANSFER_REQ{.channel = 3},
               "6400 1000 1a00 0000  0300 0000 0000 0000"),
        golden("four channels, bursts without a limit", TRANSFER_ANS{.channel = 4, .second = 65535},
               "6400 1000 1b00 0100  0400 ffff 0000 0000"),
        golden("packets of 1024, 8 a block, 16 blocks",
               TRANSFER_ANS{.channel = 3, .second = 1023, .blockPackets1 = 7, .blocks1 = 15},
               "6400 1000 1b00 0100  0300 ff03 0700 0f00"),
        transferData(
            "within a burst: 8 bytes, no filler", {.channel = 3, .seq = 4, .index = 4, .block = 0},
            "6400 1800 1c00 0000  0300 0400 0400 0000  1112131415161718", "1112131415161718"),
        transferData("last of a burst: 3 bytes, 5 of filler",
                     {.channel = 0x8003, .seq = 9, .index = 1, .block = 1},
                     "6400 1d00 1c00 0000  0380 0900 0100 0100  aabbcc 0000000000", "aabbcc"),
        golden("reached 9", TRANSFER_ACK{.channel = 3, .seq = 9},
               "6400 1000 1d00 0100  0300 0900 0000 0000"),
        golden("burst refused", TRANSFER_ACK{.accepted = false, .channel = 3},
               "6400 1000 1d00 0000  0300 0000 0000 0000"),
        golden("the CRC and status 65535",
               TRANSFEREND_REQ{.channel = 3, .crc = 0xb4c8, .status = 65535},
               "6400 1000 1e00 0000  0300 c8b4 ffff 0000"),
        golden("complete", TRANSFEREND_ANS{.channel = 3, .crc = 0xb4c8, .status = 65535},
               "6400 1000 1f00 0100  0300 c8b4 ffff 0000"),

        golden("text A?", INFOA_REQ{}, "6400 1000 2000 0000  0000000000000000"),
        golden("text A", INFOA_ANS{.text = "a"},
               "6400 1f00 2100 0100  0000000000000000  61 00000000000000"),
        golden("text B?", INFOB_REQ{}, "6400 1000 2200 0000  0000000000000000"),
        golden("text B, 8 bytes, no filler", INFOB_ANS{.text = "v1.2.3-4"},
               "6400 1800 2300 0100  0000000000000000  76312e322e332d34"),
        golden("value 513", VALUE_REQ{.value = 0x0201}, "6400 1000 2400 0000  0102 0000 0000 0000"),
        golden("value 513 again", VALUE_ANS{.value = 0x0201},
               "6400 1000 2500 0100  0102 0000 0000 0000"),
        golden("text number 5?", INFOINDEX_REQ{.index = 5},
               "6400 1000 2c00 0000  0500 0000 0000 0000"),
        golden("text number 5, 2 bytes", INFOINDEX_ANS{.text = "ok"},
               "6400 1e00 2d00 0100  0000000000000000  6f6b 000000000000"),

        golden("how many items", ITEM_REQ{.itemNo = 0}, "6400 1000 3000 0000  0000 0000 0000 0000"),
        golden("seven items", ITEM_ANS{.itemNo = 7}, "6400 1000 3100 0100  0700 0000 0000 0000"),
        golden("item 3, a signed number from -1 to 1",
               ITEM_ANS{.itemNo = 3, .type = 2, .lower = 0xffff, .upper = 1, .label = "Gain"},
               "6400 1c00 3100 0100  0300 0200 ffff 0100  4761696e 00000000"),
        golden("read item 3", ITEMVALUE_REQ{.itemNo = 3},
               "6400 1000 3200 0000  0300 0000 0000 0000"),
        golden("write item 3, one byte of text",
               ITEMVALUE_REQ{.itemNo = 3, .mode = 1, .value = 7, .text = "x"},
               "6400 1f00 3200 0000  0300 0100 0700 0000  78 00000000000000"),
        golden("the alternative value of item 3", ITEMVALUE_REQ{.itemNo = 3, .mode = 2},
               "6400 1000 3200 0000  0300 0200 0000 0000"),
        golden("label of value -1 of item 3",
               ITEMVALUE_REQ{.itemNo = 3, .mode = 3, .value = 0xffff},
               "6400 1000 3200 0000  0300 0300 ffff 0000"),
        golden("value 7, second 2, a text of 3 bytes",
               ITEMVALUE_ANS{.itemNo = 3, .current = 7, .second = 2, .text = "mid"},
               "6400 1d00 3300 0100  0300 0700 0000 0200  6d6964 0000000000"),
    };
}

}  // namespace velmora_test
