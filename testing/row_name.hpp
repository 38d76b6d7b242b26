// Names each case of a parameterised test after the `name` member of its
// row, so that a failure and CTest's list say which row broke:
//
//   INSTANTIATE_TEST_SUITE_P(Urls, SplitTest, ::testing::ValuesIn(kCases),
//                            test::RowName());
#ifndef TOVRIN_AI_TESTING_ROW_NAME_HPP_
#define TOVRIN_AI_TESTING_ROW_NAME_HPP_

#include <string>

namespace tovrin::ai::test {

struct RowName {
  template <typename Info>
  std::string operator()(const Info& info) const {
    return info.param.name;
  }
};

}  // namespace tovrin::ai::test

#endif  // TOVRIN_AI_TESTING_ROW_NAME_HPP_
