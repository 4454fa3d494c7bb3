#include "find/Find.h"

namespace VELMORA {

Find::Find(const FindSetting& setting, ZENNO::Environment& environment)
    : setting_(setting),
      environment_(environment),
      socket_(environment.makeLink()),
      notifySocket_(environment.makeLink()) {}

Find::~Find() {
    close();
    notifySocket_->close();
}

int Find::sendAck(const ZENNO::IPAddress& dest, const ZENNO::Bytes& message, std::uint32_t answerId,
                  ZENNO::Bytes& answer) {
    return VELMORA::sendAck(*socket_, environment_.clock(), dest, message, answerId, answer);
}

std::uint64_t Find::filterProduct(std::uint64_t id) {
    return VELMORA::filterProduct(setting_, id);
}

bool Find::addTarget(const ZENNO::IPAddress& address, std::uint64_t product,
                     const std::string& name) {
    SinkMap sinks;
    bool isWhole = false;
    if (!readSinks(address, sinks, isWhole)) return false;
    table_.update(address, product, name, sinks, isWhole);
    return true;
}

void Find::removeTarget(const ZENNO::IPAddress& address) {
    table_.remove(address);
}

void Find::takeAdded(TargetMap& out) {
    table_.takeAdded(out);
}

void Find::takeLost(std::list<ZENNO::IPAddress>& out) {
    table_.takeLost(out);
}

void Find::eraseTarget(const ZENNO::IPAddress& key) {
    table_.erase(key);
}

std::uint64_t Find::targetCount() {
    return table_.size();
}

}  // namespace VELMORA
