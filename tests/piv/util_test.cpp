// Process-wide helpers: the software's name, threads, sorting, names of variables.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "piv_enums.h"
#include "piv_util.h"

TEST(SoftwareName, PrefixDependsOnTheFirstSevenLetters) {
    struct Case {
        const char* given;
        const char* stored;
    };
    const Case cases[] = {
        {"kelvane2c", "SODREL Kelvane Module - kelvane2c"},
        {"KELVANE-eval", "SODREL Kelvane Module - KELVANE-eval"},
        {"kelvan", "SODREL - kelvan"},  // only six letters
        {"\"C:\\Program Files\\tool.exe\"", "SODREL - C:/Program Files/tool.exe"},
        {"/usr/bin/kelvane2c", "SODREL - /usr/bin/kelvane2c"},
    };
    for (const Case& c : cases) {
        EXPECT_STREQ(PIV::SoftwareName(c.given), c.stored) << c.given;
        EXPECT_STREQ(PIV::SoftwareName(), c.stored);  // and it stays
    }
}

TEST(MaxThreads, RequestsOutsideTheRangeTakeAll) {
    const int all = PIV::MaxThreadsPossible();
    ASSERT_GE(all, 1);
    PIV::SetMaxThreads(1);
    EXPECT_EQ(PIV::MaxThreads(), 1);
    for (int n : {0, all + 5, -1}) {
        PIV::SetMaxThreads(n);
        EXPECT_EQ(PIV::MaxThreads(), all) << n;
    }
}

TEST(Sorting, HeapSortAndIndexSort) {
    std::vector<float> v = {3.5f, -1.0f, 2.0f, 2.0f, 10.0f};
    std::vector<int> index(v.size());
    PIV::IndexSort(v.data(), index.data(), int(v.size()));
    EXPECT_EQ(index, (std::vector<int>{1, 2, 3, 0, 4}));
    PIV::HeapSort(v.data(), int(v.size()));
    EXPECT_EQ(v, (std::vector<float>{-1.0f, 2.0f, 2.0f, 3.5f, 10.0f}));
}

TEST(NiceValues, RoundToOneTwoTwoAndHalfFive) {
    for (const auto& [in, out] :
         {std::pair{0.93f, 1.0f}, {2.3f, 2.5f}, {38.0f, 50.0f}, {-0.018f, -0.02f}, {0.0f, 0.0f}})
        EXPECT_FLOAT_EQ(PIV::CreateNiceFloatValue(in), out) << in;
}

TEST(VariableNames, ListAndLookup) {
    std::vector<std::string> names;
    for (int type : {0, 40, 41, -1}) names.push_back(PIV::GetVariableNameFromType(type));
    EXPECT_EQ(names, (std::vector<std::string>{"flag", "nstrain", "", ""}));
    const std::pair<const char*, int> lookups[] = {{"DX", 12},      {"vx", 16},   {"shear_xy", 39},
                                                   {"nstrain", 40}, {"flag", -1}, {"vort_mag", -1}};
    for (const auto& [name, type] : lookups)
        EXPECT_EQ(PIV::GetVariableTypeFromName(name), type) << name;
}
