#include "platform/core/NoDestructor.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace {

using kvl::NoDestructor;

struct CountsDestructions {
  int& destructions;
  ~CountsDestructions() { ++destructions; }
};

TEST(NoDestructorTest, NeverDestroysItsObject) {
  int destructions = 0;
  {
    const NoDestructor<CountsDestructions> object(CountsDestructions{destructions});
  }
  EXPECT_EQ(destructions, 1);  // the temporary that it was made from
}

TEST(NoDestructorTest, MakesItsObjectFromItsArguments) {
  const NoDestructor<std::string> text(std::size_t{3}, 'x');
  EXPECT_EQ(*text, "xxx");
  EXPECT_EQ(text->size(), 3U);
  // Short enough to stand in the object itself, which nobody destroys.
  static_assert(sizeof(NoDestructor<std::string>) == sizeof(std::string));
}

TEST(NoDestructorTest, TakesWhatCannotBeCopied) {
  static NoDestructor<std::unique_ptr<int>> number(std::make_unique<int>(7));
  EXPECT_EQ(**number, 7);
}

TEST(NoDestructorTest, GivesTheSameObjectEachTime) {
  const auto counter = []() -> int& {
    static NoDestructor<int> count(0);
    return *count;
  };
  ++counter();
  ++counter();
  EXPECT_EQ(counter(), 2);
}

TEST(NoDestructorTest, AlignsItsObject) {
  struct alignas(64) Aligned {
    char byte = 0;
  };
  const NoDestructor<Aligned> aligned;
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&*aligned) % 64, 0U);
}

}  // namespace
