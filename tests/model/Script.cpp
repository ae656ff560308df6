#include "tests/model/Script.h"

#include <algorithm>

namespace refmodel {

namespace {

using Act = Operation::Act;
using What = Action::What;

constexpr uint32_t zeroBlock = 0xFF0000;
constexpr uint32_t trailerBytes = 8;

bool covers(const vdl::BlockRun& run, uint64_t lba) {
  return lba >= run.first && lba < run.end && (lba - run.first) % run.step == 0;
}

bool overlap(const vdl::BlockRun& left, const vdl::BlockRun& right) {
  for (uint64_t lba = left.first; lba < left.end; lba += left.step) {
    if (covers(right, lba)) {
      return true;
    }
  }
  return false;
}

vdl::WrittenContent contentOf(const Operation& operation, uint64_t id, uint64_t first) {
  vdl::WrittenContent content{operation.bucket, {operation.kind != Kind::unstamped, id, first}};
  content.nextBucketEach = operation.kind != Kind::same && operation.kind != Kind::trim;
  content.ownLbaEach = operation.kind != Kind::same;
  if (operation.kind == Kind::trim) {
    content.block = zeroBlock;
    content.embed.valid = false;
  }
  return content;
}

Action about(const Life& life, uint64_t id, What what) {
  Action action;
  action.what = what;
  action.id = id;
  action.run = life.run;
  return action;
}

}  // namespace

Life* Script::find(uint32_t command) {
  const auto found =
      std::find_if(lives_.begin(), lives_.end(), [command](const Life& life) { return life.command == command; });
  return found == lives_.end() ? nullptr : &*found;
}

std::vector<Action> Script::settle(const Operation& operation, const modeltest::Model& table) {
  switch (operation.act) {
    case Act::issue:
      return issueNew(operation, table);
    case Act::reset:
      return reset();
    case Act::skip:
    case Act::invalidate: {
      Action action;
      action.what = operation.act == Act::skip ? What::skip : What::invalidate;
      const uint64_t first = base_ + operation.first;
      action.run = {first, first + uint64_t{operation.blocks - 1} * operation.step + 1, operation.step};
      action.flag = operation.flag;
      if (Life* life = find(operation.command); life != nullptr && operation.act == Act::skip) {
        life->skipped = true;
      }
      return {action};
    }
    default:
      break;
  }
  Life* life = find(operation.command);
  if (life == nullptr) {
    return {};
  }
  switch (operation.act) {
    case Act::finish:
    case Act::fail:
      return endWrite(*life, operation);
    case Act::keepHashes:
      return keepHashes(*life, operation);
    case Act::drop:
      life->hashed = false;
      return {about(*life, idOf(life->command), What::drop)};
    default:
      return endRead(*life, operation);
  }
}

std::vector<Action> Script::issueNew(const Operation& operation, const modeltest::Model& table) {
  if (operation.blocks == 0 || (!lives_.empty() && lives_.back().command >= operation.command)) {
    return {};
  }
  Life life;
  life.command = operation.command;
  life.kind = operation.kind;
  const uint64_t first = base_ + operation.first;
  life.run = {first, first + uint64_t{operation.blocks - 1} * operation.step + 1, operation.step};
  const uint64_t id = idOf(operation.command);
  life.content = contentOf(operation, id, first);
  lives_.push_back(life);
  if (operation.kind == Kind::preRead) {
    return {};
  }
  Action action = about(life, id, What::write);
  action.content = life.content;
  if (operation.kind == Kind::atomic) {
    action.what = What::atomic;
    action.bound = std::max(operation.bound, 1U);
  } else if (operation.kind == Kind::read) {
    action.what = What::read;
    for (uint64_t lba = life.run.first; lba < life.run.end; lba += life.run.step) {
      const bool owed = table.has(lba) && table.records.at(lba).references > 0;
      action.expects.push_back(operation.expects == Expects::everywhere ||
                               (operation.expects == Expects::whereOwed && owed));
    }
  }
  return {action};
}

std::vector<Action> Script::endWrite(Life& life, const Operation& operation) {
  if (!life.inFlight || !writes(life.kind)) {
    return {};
  }
  life.inFlight = false;
  life.good = operation.act == Act::finish;
  Action action = about(life, idOf(life.command), life.good ? What::finish : What::fail);
  action.from = operation.from;
  action.landed = true;
  return {action};
}

std::vector<Action> Script::endRead(Life& life, const Operation& operation) {
  if (!life.inFlight || life.kind != Kind::read) {
    return {};
  }
  life.inFlight = false;
  if (operation.act == Act::giveData) {
    return giveData(life, operation);
  }
  Action action = about(life, idOf(life.command), What::endRead);
  action.flag = operation.act == Act::lose;
  return {action};
}

std::vector<Action> Script::giveData(const Life& life, const Operation& operation) const {
  std::vector<Action> actions;
  const uint64_t id = idOf(life.command);
  const auto length = static_cast<uint32_t>(life.run.count());
  const uint32_t compared = length - std::min(operation.leftOut, length);
  if (compared < length) {
    actions.push_back(about(life, id, What::endRead));
    actions.back().run.first += uint64_t{compared} * life.run.step;
  }
  Action action = about(life, id, What::giveData);
  action.data.id = id;
  action.data.lba = life.run.first;
  action.data.blocks = compared;
  action.data.length = length;
  action.data.step = life.run.step;
  for (const Life& other : lives_) {
    if (other.inFlight && writes(other.kind) && other.command < life.command && overlap(other.run, life.run)) {
      action.data.overtaken.push_back(idOf(other.command));
    }
  }
  action.data.bytes = dataOf(life.run, operation);
  actions.push_back(action);
  return actions;
}

std::vector<Action> Script::keepHashes(Life& life, const Operation& operation) const {
  if (!life.inFlight || life.kind != Kind::preRead) {
    return {};
  }
  life.inFlight = false;
  life.hashed = operation.flag;
  Action action = about(life, idOf(life.command), What::keepHashes);
  action.flag = operation.flag;
  size_t block = 0;
  for (uint64_t lba = life.run.first; lba < life.run.end; lba += life.run.step, ++block) {
    const Content content = block < operation.data.size() ? operation.data[block] : Content{};
    action.hashes.push_back(content.is == Content::Is::before ? medium_->hashBefore(lba)
                                                              : hashOf(bytesOf(content, lba)));
  }
  return {action};
}

std::vector<Action> Script::reset() {
  std::vector<Action> actions;
  for (Life& life : lives_) {
    if (life.inFlight && life.kind == Kind::read) {
      actions.push_back(about(life, idOf(life.command), What::endRead));
      actions.back().flag = true;
    }
  }
  for (Life& life : lives_) {
    if (life.inFlight && writes(life.kind)) {
      actions.push_back(about(life, idOf(life.command), What::fail));
      actions.back().landed = true;
    }
    life.inFlight = false;
  }
  return actions;
}

Bytes Script::writtenBy(uint32_t command, uint64_t lba) const {
  for (const Life& life : lives_) {
    if (life.command != command || !writes(life.kind) || !covers(life.run, lba)) {
      continue;
    }
    const auto block = static_cast<uint32_t>((lba - life.run.first) / life.run.step);
    vdl::EmbedData stamp = life.content.embed;
    stamp.lba = life.content.ownLbaEach ? lba : stamp.lba;
    return medium_->written(life.content.block + (life.content.nextBucketEach ? block : 0), stamp);
  }
  return medium_->before(lba);
}

Bytes Script::bytesOf(const Content& content, uint64_t lba) const {
  Bytes block;
  switch (content.is) {
    case Content::Is::before:
      return medium_->before(lba);
    case Content::Is::foreign:
      return medium_->foreign(lba);
    case Content::Is::written:
      return writtenBy(content.command, lba);
    case Content::Is::torn: {
      block = medium_->before(lba);
      const Bytes arrived = writtenBy(content.command, lba);
      std::copy_n(arrived.begin(), std::min<size_t>(content.at, block.size()), block.begin());
      return block;
    }
    case Content::Is::flipped:
      block = writtenBy(content.command, lba);
      block[content.at % block.size()] ^= 0x10;
      return block;
  }
  return block;
}

Bytes Script::dataOf(const vdl::BlockRun& run, const Operation& operation) const {
  Bytes bytes;
  size_t block = 0;
  for (uint64_t lba = run.first; lba < run.end; lba += run.step, ++block) {
    const Content other{Content::Is::foreign, 0, 0};
    const Bytes one = bytesOf(block < operation.data.size() ? operation.data[block] : other, lba);
    bytes.insert(bytes.end(), one.begin(), one.end());
    bytes.insert(bytes.end(), operation.trailers ? trailerBytes : 0, 0x5A);
  }
  bytes.resize(bytes.size() - std::min<size_t>(operation.cut, bytes.size()));
  return bytes;
}

}  // namespace refmodel
