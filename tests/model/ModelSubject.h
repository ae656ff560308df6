#pragma once

#include <set>
#include <string>
#include <vector>

#include "tests/model/Action.h"
#include "tests/model/ReadContext.h"

namespace refmodel {

/// The rules, carried out slowly: a value that may be copied at any point.
class ModelSubject : public Subject {
 public:
  /// Both must outlive the model and its copies.
  ModelSubject(const Medium& medium, const StatusLine& statusLine) : medium_(&medium), statusLine_(&statusLine) {}

  Verdict carryOut(const Action& action) override;

  const Model& table() const { return table_; }
  /// Reads that wait for writes, in the order in which they ended.
  const std::vector<ReadData>& waiting() const { return waiting_; }
  /// Settles what a waiting read returned: until it is judged nobody has looked.
  void setData(uint64_t id, const Bytes& bytes, uint32_t blocks);

 private:
  int tell(const Action& action);
  int write(const Action& action);
  int read(const Action& action);
  int endRead(uint64_t id, const vdl::BlockRun& run, bool keep);

  void judgeComparable(Verdict& verdict);
  int judge(const ReadData& read, Verdict& verdict);
  int judgeBlocks(const ReadData& read, ReadContext& context, Verdict& verdict) const;
  int judgeBlock(const ReadData& read, uint64_t lba, const Bytes& block, ReadContext& context, Verdict& verdict) const;
  int judgeContent(const ReadData& read, uint64_t lba, const Bytes& block, const ModelPeek& expected,
                   const ReadContext& context, Verdict& verdict) const;
  int judgeHash(const ReadData& read, uint64_t lba, const Bytes& block, const ModelPeek& expected,
                const ReadContext& context, Verdict& verdict) const;
  static int reportOrder(uint64_t lba, const ReadContext& context, Verdict& verdict);

  const Medium* medium_;
  const StatusLine* statusLine_;
  Model table_;
  std::set<uint64_t> writesInFlight_;
  std::vector<ReadData> waiting_;
};

}  // namespace refmodel
