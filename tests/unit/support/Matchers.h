#ifndef TESTS_UNIT_SUPPORT_MATCHERS_H
#define TESTS_UNIT_SUPPORT_MATCHERS_H

/* The matchers of GoogleMock that the tests use, without their namespace. */

#include <gmock/gmock.h>

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

#endif
