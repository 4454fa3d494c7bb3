// Every reader of discovery's messages.
#include "fuzz/RoundTrip.h"

using namespace VELMORA::wire;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return velmora_fuzz::roundTripAll<
        FIND_REQ, FIND_ANS, SINK_REQ, SINK_ANS, CONFIG_REQ, CONFIG_ANS, HELLO_REQ, HELLO_ANS,
        NOTIFY, TRANSFER_REQ, TRANSFER_ANS, TRANSFER_DATA, TRANSFER_ACK, TRANSFEREND_REQ,
        TRANSFEREND_ANS, INFOA_REQ, INFOA_ANS, INFOB_REQ, INFOB_ANS, VALUE_REQ, VALUE_ANS,
        INFOINDEX_REQ, INFOINDEX_ANS, ITEM_REQ, ITEM_ANS, ITEMVALUE_REQ, ITEMVALUE_ANS>(data, size);
}
