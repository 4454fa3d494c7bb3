// A target's own settings, its texts and its value, as a target tells them that the fuzzer is: a
// list comes within its time and its bounds, whatever the target says of itself.
#include "fuzz/Asking.h"

using namespace velmora_fuzz;
using namespace VELMORA;

namespace {

bool hasChoices(const SettingItem& item) {
    return item.kind == settingSwitch || item.kind == settingChoice ||
           item.kind == settingChoiceText;
}

// An item that was read to its end.
void check(const SettingItem& item) {
    require(item.kind >= settingUnknown && item.kind <= settingChoiceText);
    const std::int64_t values = std::int64_t{item.upper} - item.lower + 1;
    const std::size_t labels =
        hasChoices(item) && values > 0 ? static_cast<std::size_t>(values) : 0;
    require(item.choices.size() == labels);
    const bool hasText = item.kind == settingText || item.kind == settingChoiceText;
    require(hasText || item.value.empty());
    require(item.kind != settingChoiceText || !item.value.empty() || labels != 0);
}

void readList(Asking& asking, const IPAddress& target, bool alternative) {
    SettingList list;
    asking.within(settingsLimit + second,
                  [&] { return asking.find.getItems(target, list, alternative); });
    require(list.size() <= 65535);
    std::size_t choices = 0;
    for (const SettingItem& item : list) {
        check(item);
        choices += item.choices.size();
    }
    require(choices <= mostChoices);
}

void ask(Asking& asking, Input& input) {
    Find& find = asking.find;
    const IPAddress target = linkLocal(1, controlPort);
    const std::uint8_t question = input.byte() % 8;
    const std::uint16_t number = input.word();
    std::string text;
    switch (question) {
        case 0:
        case 1:
            readList(asking, target, /*alternative=*/question == 1);
            break;
        case 2: {
            const Bytes written = input.bytes(number % 2000);
            asking.within(second, [&] {
                return find.setItem(target, number, {written.begin(), written.end()}, number);
            });
            break;
        }
        case 3:
            asking.within(second, [&] { return find.commitItems(target, (number & 1) != 0); });
            break;
        case 4: {
            const bool told = asking.within(second, [&] { return find.readInfoA(target, text); });
            require(told || text.empty());
            break;
        }
        case 5: {
            const bool told = asking.within(second, [&] { return find.readInfoB(target, text); });
            require(told || text.empty());
            break;
        }
        case 6: {
            const bool told =
                asking.within(second, [&] { return find.readInfoIndexed(target, number, text); });
            require(told || text.empty());
            break;
        }
        default: {
            std::uint16_t crc = number, status = 0;
            asking.within(second, [&] { return find.writeValue(target, number != 0, number); });
            asking.within(second, [&] { return find.transferStatus(target, 0, crc, status); });
            break;
        }
    }
    require(text.size() <= 1500);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::uint8_t choices = input.byte();
    const EveryLine lines((choices & 1) != 0);
    Asking asking(input, {}, /*twoInterfaces=*/false);
    for (int i = 0; i <= (choices >> 1 & 3); ++i) ask(asking, input);
    return 0;
}
