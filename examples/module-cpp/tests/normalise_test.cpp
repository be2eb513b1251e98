// Tests normalise on arrays. Any framework for tests can call these functions; here `main` does.
#include "vorn_module_test.h"

#include <vector>

int main()
{
    const std::vector<float> samples = {1, 2, 0};
    const std::vector<float> expected = {2, 4.0F, 0};
    vorn_test* test = vorn_test_open("normalise");
    vorn_test_set_text(test, "measure", "max");
    vorn_test_set_number(test, "level", 4);
    vorn_test_add_trace(test, 0, samples.data(), static_cast<int>(samples.size()));
    vorn_test_run(test);
    vorn_test_expect_traces(test, 0, 1);
    vorn_test_expect_samples(test, 0, 0, expected.data(), static_cast<int>(expected.size()), 1e-6);
    vorn_test_expect_no_leak(test);
    return vorn_test_close(test);
}
