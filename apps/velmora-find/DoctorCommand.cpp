// doctor: why a target is not found.
#include "apps/velmora-find/Address.h"
#include "apps/velmora-find/Commands.h"
#include "apps/velmora-find/Diagnosis.h"
#include "apps/velmora-find/Examination.h"
#include "apps/velmora-find/Printable.h"
#include "apps/velmora-find/Target.h"

namespace velmora_find {
namespace {

constexpr const char* aboutSizes =
    "A long datagram that is answered has arrived, whole or in fragments, which this computer "
    "cannot\ntell; whether the way back takes as much is not seen.";

std::string stateText(const ExaminedInterface& there) {
    if (there.bindError != 0) return "cannot be used";
    if (there.sendError != 0) return "nothing can be sent";
    if (there.targets.empty()) return "asked, nobody answered";
    return "asked, " + std::to_string(there.targets.size()) + " answered";
}

std::string targetText(const ZENNO::IPAddress& address, const ExaminedTarget& target) {
    std::string text = printable(target.name) + "  " + addressText(address) + " port " +
                       std::to_string(address.portNumber());
    if (target.refused) return text + ", refuses";
    const std::string product = productText(target.product);
    text += ", " + (product.empty() ? "no product told" : "product " + product) + ", " +
            std::to_string(target.sinks) + (target.sinks == 1 ? " sink" : " sinks");
    if (target.largestAnswered != 0) {
        text += ", the largest datagram it answered has " + std::to_string(target.largestAnswered) +
                " bytes";
    }
    return text;
}

void print(std::ostream& out, const Examination& examination, const Diagnosis& diagnosis) {
    bool anySize = false;
    for (const ExaminedInterface& there : examination.interfaces) {
        out << "Interface " << printable(there.name) << ", number " << there.number << ", "
            << addressText(there.address) << ": " << stateText(there) << '\n';
        for (const auto& [address, target] : there.targets) {
            out << "    " << targetText(address, target) << '\n';
            anySize = anySize || target.largestAnswered != 0;
        }
    }
    for (const LeftOut& left : examination.leftOut) {
        out << "Left out: " << printable(left.name) << ", for " << left.why << '\n';
    }
    if (anySize) out << aboutSizes << '\n';
    for (const Finding& finding : diagnosis.findings) {
        out << "\nWrong: " << finding.wrong << "\nHelps: " << finding.helps << '\n';
    }
    out << '\n' << diagnosis.verdict << '\n';
}

Json errorJson(std::int32_t error) {
    return error == 0 ? Json(nullptr) : Json(error);
}

Json interfaceJson(const ExaminedInterface& there) {
    Json targets = Json::array();
    for (const auto& [address, target] : there.targets) {
        targets.push_back(
            {{"name", printable(target.name)},
             {"address", addressText(address)},
             {"port", address.portNumber()},
             {"product", productText(target.product)},
             {"refused", target.refused},
             {"late", target.late},
             {"otherProduct", target.isOtherProduct},
             {"sinks", target.sinks},
             {"sinksTooNew", target.sinksTooNew},
             {"largestAnswered",
              target.largestAnswered == 0 ? Json(nullptr) : Json(target.largestAnswered)}});
    }
    return {{"name", printable(there.name)},
            {"description", printable(there.description)},
            {"number", there.number},
            {"address", addressText(there.address)},
            {"usable", there.isUsable()},
            {"bindError", errorJson(there.bindError)},
            {"sendError", errorJson(there.sendError)},
            {"strays", there.strays},
            {"targets", targets}};
}

Json asJson(const Examination& examination, const Diagnosis& diagnosis) {
    Json interfaces = Json::array(), leftOut = Json::array(), findings = Json::array();
    for (const ExaminedInterface& there : examination.interfaces) {
        interfaces.push_back(interfaceJson(there));
    }
    for (const LeftOut& left : examination.leftOut) {
        leftOut.push_back({{"name", printable(left.name)}, {"why", left.why}});
    }
    for (const Finding& finding : diagnosis.findings) {
        findings.push_back({{"wrong", finding.wrong}, {"helps", finding.helps}});
    }
    return {{"interfaces", interfaces},
            {"leftOut", leftOut},
            {"findings", findings},
            {"targets", diagnosis.targets},
            {"verdict", diagnosis.verdict}};
}

}  // namespace

int doctorCommand(Context& context, const Options& options) {
    const Examination examination = examine(context, options.interface);
    const Diagnosis diagnosis = diagnose(examination);
    if (options.json) {
        context.out << asJson(examination, diagnosis).dump(2) << '\n';
    } else {
        print(context.out, examination, diagnosis);
    }
    return diagnosis.code;
}

}  // namespace velmora_find
