#include <kvr/api/data/NQ_Strings.h>

#include "ForkedChild.h"

#include <climits>
#include <csignal>
#include <initializer_list>
#include <string>
#include <vector>

#include <sys/time.h>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvr::api::data::NQ_Strings;
using testing::ElementsAre;
using testing::IsEmpty;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    NQ_Strings::replaceAll(text, from, to);
    return text;
}

std::string reduced(std::string text) {
    NQ_Strings::reduceSpace(text);
    return text;
}

std::string withoutSpace(std::string text) {
    NQ_Strings::removeSpace(text);
    return text;
}

/// Returns the status of a child that replaces an empty pattern; SIGPROF ends it after 50 ms of
/// processor time.
int statusOfEmptyPattern(const std::string& to) {
    return support::inForkedChild([&] {
               itimerval limit = {};
               limit.it_value.tv_usec = 50000;
               setitimer(ITIMER_PROF, &limit, nullptr);
               std::string text = "abc";
               NQ_Strings::replaceAll(text, "", to);
           })
        .status;
}

// BothAreSpaces -----------------------------------------------------------------------------------

TEST(NQ_Strings, OfAllPairsOfBytesOnlyTwoBlanksCountAsBothSpaces) {
    for (int a = CHAR_MIN; a <= CHAR_MAX; ++a) {
        for (int b = CHAR_MIN; b <= CHAR_MAX; ++b) {
            const bool blanks = a == 32 && b == 32;
            ASSERT_EQ(blanks, NQ_Strings::BothAreSpaces(static_cast<char>(a), static_cast<char>(b)))
                << a << " and " << b;
        }
    }
}

// replaceAll --------------------------------------------------------------------------------------

TEST(NQ_Strings, EveryOccurrenceIsReplaced) {
    EXPECT_EQ("1 two 1 two", replaced("one two one two", "one", "1"));
}

TEST(NQ_Strings, InsertedTextIsNotSearchedAgain) {
    EXPECT_EQ("aaaaaa", replaced("aaa", "a", "aa"));
    EXPECT_EQ("xaxa", replaced("aa", "a", "xa"));
}

TEST(NQ_Strings, TextMadeByAReplacementAndWhatFollowsIsNotSearchedAgain) {
    // The inserted "a" and the "b" after it form another "ab".
    EXPECT_EQ("ab", replaced("abb", "ab", "a"));
}

TEST(NQ_Strings, OccurrencesAreTakenFromTheLeftWithoutOverlap) {
    EXPECT_EQ("xa", replaced("aaa", "aa", "x"));
}

TEST(NQ_Strings, AnEmptyReplacementRemovesEveryOccurrence) {
    EXPECT_EQ("ac", replaced("-a--c-", "-", ""));
    EXPECT_EQ("", replaced("---", "-", ""));
}

TEST(NQ_Strings, ATextWithoutThePatternStays) {
    EXPECT_EQ("abc", replaced("abc", "d", "e"));
    EXPECT_EQ("abc", replaced("abc", "abcd", "e"));
    EXPECT_EQ("", replaced("", "a", "b"));
}

TEST(NQ_Strings, OccurrencesAtBothEndsAreReplaced) {
    EXPECT_EQ("<b>b<b>", replaced("aba", "a", "<b>"));
}

TEST(NQ_Strings, ZeroBytesAreReplacedLikeOthers) {
    const std::string zero(1, '\0');
    EXPECT_EQ("a,b,", replaced("a" + zero + "b" + zero, zero, ","));
    EXPECT_EQ("a" + zero + "b", replaced("a,b", ",", zero));
}

TEST(NQ_Strings, AnEmptyPatternIsReplacedForEver) {
    for (const char* to : {"", "x"}) {
        const int status = statusOfEmptyPattern(to);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF)
            << "raw status " << status << " with replacement '" << to << "'";
    }
}

// reduceSpace -------------------------------------------------------------------------------------

TEST(NQ_Strings, RunsOfBlanksBecomeOneBlank) { EXPECT_EQ("a b c d", reduced("a b  c     d")); }

TEST(NQ_Strings, RunsAtTheEndsAreReducedButNotTrimmed) {
    EXPECT_EQ(" a ", reduced("   a   "));
    EXPECT_EQ(" a ", reduced(" a "));
    EXPECT_EQ(" ", reduced("    "));
}

TEST(NQ_Strings, ATabBetweenBlanksSeparatesTwoRuns) { EXPECT_EQ(" \t ", reduced("  \t  ")); }

TEST(NQ_Strings, RunsOfOtherWhiteSpaceAreNotReduced) {
    EXPECT_EQ("a\t\tb\n\nc\r\rd\v\ve\f\f", reduced("a\t\tb\n\nc\r\rd\v\ve\f\f"));
}

TEST(NQ_Strings, RunsOfLettersAreNotReduced) { EXPECT_EQ("aabb", reduced("aabb")); }

TEST(NQ_Strings, AnEmptyTextStaysEmpty) {
    EXPECT_EQ("", reduced(""));
    EXPECT_EQ("", withoutSpace(""));
}

// removeSpace -------------------------------------------------------------------------------------

TEST(NQ_Strings, AllSixKindsOfWhiteSpaceAreRemovedInOrder) {
    EXPECT_EQ("abcdefg", withoutSpace("a b\tc\nd\ve\ff\rg"));
}

TEST(NQ_Strings, WhiteSpaceAtTheEndsIsRemoved) {
    EXPECT_EQ("namevalue", withoutSpace("  name\t value \n"));
    EXPECT_EQ("", withoutSpace(" \t\n"));
}

TEST(NQ_Strings, BytesOutsideAsciiAndControlBytesStay) {
    std::string text;
    for (int byte = 0; byte < 256; ++byte)
        text += static_cast<char>(byte);
    std::string expected;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != ' ' && (byte < '\t' || byte > '\r'))
            expected += static_cast<char>(byte);
    }
    EXPECT_EQ(expected, withoutSpace(text));
}

// split -------------------------------------------------------------------------------------------

TEST(NQ_Strings, FieldsStandBetweenDelimiters) {
    EXPECT_THAT(NQ_Strings::split("a,bc,d", ','), ElementsAre("a", "bc", "d"));
}

TEST(NQ_Strings, AnEmptyTextHasNoField) { EXPECT_THAT(NQ_Strings::split("", ','), IsEmpty()); }

TEST(NQ_Strings, ATextWithoutDelimiterIsOneField) {
    EXPECT_THAT(NQ_Strings::split("a b\nc", ','), ElementsAre("a b\nc"));
}

TEST(NQ_Strings, AdjacentDelimitersEncloseAnEmptyField) {
    EXPECT_THAT(NQ_Strings::split("a,,b", ','), ElementsAre("a", "", "b"));
}

TEST(NQ_Strings, ALeadingDelimiterFollowsAnEmptyField) {
    EXPECT_THAT(NQ_Strings::split(",a", ','), ElementsAre("", "a"));
}

TEST(NQ_Strings, ATrailingDelimiterEndsTheLastField) {
    EXPECT_THAT(NQ_Strings::split("a,b,", ','), ElementsAre("a", "b"));
    EXPECT_THAT(NQ_Strings::split("a,b,,", ','), ElementsAre("a", "b", ""));
}

TEST(NQ_Strings, ADelimiterAloneGivesOneEmptyField) {
    EXPECT_THAT(NQ_Strings::split(",", ','), ElementsAre(""));
}

TEST(NQ_Strings, ANewlineOrAZeroByteCanDelimit) {
    EXPECT_THAT(NQ_Strings::split("a\nb\n", '\n'), ElementsAre("a", "b"));
    EXPECT_THAT(NQ_Strings::split(std::string("a\0b", 3), '\0'), ElementsAre("a", "b"));
    EXPECT_THAT(NQ_Strings::split(std::string("a\0b", 3), ','),
                ElementsAre(std::string("a\0b", 3)));
}

TEST(NQ_Strings, SplitAppendsToTheGivenVectorAndReturnsIt) {
    std::vector<std::string> fields = {"first"};
    EXPECT_EQ(&fields, &NQ_Strings::split("a,b", ',', fields));
    NQ_Strings::split("c", ',', fields);
    NQ_Strings::split("", ',', fields);
    EXPECT_THAT(fields, ElementsAre("first", "a", "b", "c"));
}

TEST(NQ_Strings, AFieldOfTheVectorItselfCanBeSplit) {
    std::vector<std::string> fields = {"a long first field, a long second field,c,d,e,f,g,h"};
    fields.shrink_to_fit();
    NQ_Strings::split(fields[0], ',', fields);
    EXPECT_THAT(fields, ElementsAre("a long first field, a long second field,c,d,e,f,g,h",
                                    "a long first field", " a long second field", "c", "d", "e",
                                    "f", "g", "h"));
}

} // namespace
