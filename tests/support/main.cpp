// The entry of every test program: GoogleTest's, and what the support library needs.

#include <gmock/gmock.h>
#include <sys/prctl.h>

#include <string_view>

#include "support/child_report.h"
#include "support/golden.h"
#include "support/leak_listener.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (std::string_view{argv[i]} == "--update") UpdateGoldens();
    }
    // Grandchildren whose parent has gone become ours, so that the census sees them.
    (void)prctl(PR_SET_CHILD_SUBREAPER, 1);
    PrepareChildReports();
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
    return RUN_ALL_TESTS();
}
