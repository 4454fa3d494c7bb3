// The page Audio: depth and conversion, DSD, polarity, buffers, and the delay that comes of them.
#include <algorithm>

#include "apps/velmora-settings/model/Figures.h"
#include "apps/velmora-settings/model/Transport.h"
#include "apps/velmora-settings/windows/Page.h"

namespace velmora_settings {
namespace {

constexpr int idDepth = fieldControl(FieldId::pcmRequest);

class AudioPage final : public Page {
public:
    explicit AudioPage(Context& context) : Page(context, pageAudio) {}

    void refresh() override {
        const Document& document = context_.document;
        const DriverSettings values = document.reading().values;
        enable(idDepth, !convertsIntegers(document));
        const bool isRange = document.text(FieldId::bufferSize) == "0";
        for (const FieldId id :
             {FieldId::bufferSizeMin, FieldId::bufferSizeMax, FieldId::bufferSizePre}) {
            enable(fieldControl(id), isRange);
        }
        show(idDelay44, delayText(values, 44100));
        show(idDelay192, delayText(values, 192000));
    }

private:
    void fillRest() override {
        const bool converts = convertsIntegers(context_.document);
        setChecked(idConvert, converts);
        if (!converts) depth_ = context_.document.text(FieldId::pcmRequest);
        Choices choices = {{"16 bits", "16"},
                           {"24 bits", "24"},
                           {"32 bits", "32"},
                           {"64 bits, floating point", "64"}};
        const auto isDepth = [this](const auto& choice) { return choice.second == depth_; };
        if (std::none_of(choices.begin(), choices.end(), isDepth)) {
            choices.push_back({depth_ + " bits", depth_});
        }
        setChoices(idDepth, choices, depth_);
    }

    bool takeRest(int id, int /*code*/) override {
        if (id == idConvert) {
            setConvertsIntegers(context_.document, isChecked(idConvert));
            if (!isChecked(idConvert)) context_.document.setText(FieldId::pcmRequest, depth_);
            return true;
        }
        if (id != idDepth) return false;
        depth_ = chosen(idDepth);
        context_.document.setText(FieldId::pcmRequest, depth_);
        return true;
    }

    std::string depth_ = "32";  // what is wished for while nothing is converted
};

}  // namespace

std::unique_ptr<Page> makeAudioPage(Context& context) {
    return std::make_unique<AudioPage>(context);
}

}  // namespace velmora_settings
