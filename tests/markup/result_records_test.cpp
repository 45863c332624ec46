#include "markup/result_records.h"

#include <gtest/gtest.h>

TEST(AddErrorRecord, LeavesOutWhatIsNotKnown) {
    std::string result;
    AddErrorRecord(result, "a");
    AddErrorRecord(result, "b", "n");
    AddErrorRecord(result, "c", "n", 1);
    AddErrorRecord(result, "d", std::nullopt, 0);
    AddErrorRecord(result, "e", "", 1, 2);
    AddErrorRecord(result, "f", std::nullopt, kNoOffset, 3);
    EXPECT_EQ(result,
              "<a/><b tagname=\"n\"/><c tagname=\"n\" offset=\"1\"/><d offset=\"0\"/>"
              "<e tagname=\"\" offset=\"1\" offset2=\"2\"/><f offset2=\"3\"/>");
}

TEST(AddInformationRecord, HasATextThenANumberThenTheSecondOffset) {
    std::string result;
    AddInformationRecord(result, "a");
    AddInformationRecord(result, "b", {"type", "t"});
    AddInformationRecord(result, "c", {"encoding", "e"}, {"length", 1});
    AddInformationRecord(result, "d", {"msg", "m"}, {"count", 0}, 2);
    AddInformationRecord(result, "e", {"tagname", "n"}, {"offset", 1}, 2);
    AddInformationRecord(result, "f", {}, {"count", -1});
    EXPECT_EQ(result,
              "<a/><b type=\"t\"/><c encoding=\"e\" length=\"1\"/>"
              "<d msg=\"m\" count=\"0\" offset2=\"2\"/>"
              "<e tagname=\"n\" offset=\"1\" offset2=\"2\"/><f count=\"-1\"/>");
}

TEST(AddRecord, AddsNothingToAResultOfAThousandBytes) {
    for (const size_t size : {kResultLimit - 1, kResultLimit}) {
        std::string errors(size, 'x');
        std::string informations = errors;
        AddErrorRecord(errors, "a");
        AddInformationRecord(informations, "a");
        EXPECT_EQ(errors.size() != size, size < kResultLimit);
        EXPECT_EQ(informations, errors);
    }
}
