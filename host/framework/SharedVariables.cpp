#include "host/framework/SharedVariables.h"

#include <stdexcept>

#include "host/framework/SharedVariablesStore.h"

namespace corvane::host {

namespace {

template <typename T>
T& checked(T* value, std::string_view name) {
  if (value == nullptr) {
    throw std::logic_error("shared variable \"" + std::string(name) + "\" is used as two kinds");
  }
  return *value;
}

}  // namespace

SharedVariables::SharedVariables(uint32_t tags) : store_(std::make_unique<Store>()) { store_->tags = tags; }
SharedVariables::~SharedVariables() = default;

uint32_t& SharedVariables::u32(std::string_view name, uint32_t initial) {
  return checked(store_->get<uint32_t>(name, initial), name);
}
uint64_t& SharedVariables::u64(std::string_view name, uint64_t initial) {
  return checked(store_->get<uint64_t>(name, initial), name);
}
bool& SharedVariables::flag(std::string_view name, bool initial) {
  return checked(store_->get<bool>(name, initial), name);
}
vdl::Buffer& SharedVariables::buffer(std::string_view name) { return checked(store_->get<vdl::Buffer>(name), name); }
TaggedViews& SharedVariables::tagged(std::string_view name) {
  return checked(store_->get<TaggedViews>(name, store_->tags), name);
}
vdl::LBARangeQueue& SharedVariables::ranges(std::string_view name) {
  return checked(store_->get<RangeQueueHost>(name), name).platform;
}

void SharedVariables::setWriters(std::string_view name, uint32_t count) { store_->writers[std::string(name)] = count; }

uint32_t SharedVariables::writers(std::string_view name) const {
  const auto found = store_->writers.find(name);
  return found == store_->writers.end() ? 0 : found->second;
}

}  // namespace corvane::host
