/* Tests amplify on arrays. */
#include "vorn_module_test.h"

/* Traces are multiplied, and keep their headers. */
static int multiplies(void)
{
    const float first[] = {1, -2, 2};
    const float second[] = {3, 0, 5};
    const float expected[] = {2, -4, 4.0F};
    vorn_test* test = vorn_test_open("amplify");

    vorn_test_set_number(test, "factor", 2);
    vorn_test_add_trace(test, 0, first, 3);
    vorn_test_add_trace(test, 0, second, 3);
    vorn_test_set_header(test, 0, 1, "offset", 100);
    vorn_test_run(test);
    vorn_test_expect_traces(test, 0, 2);
    vorn_test_expect_samples(test, 0, 0, expected, 3, 0);
    vorn_test_expect_header(test, 0, 1, "offset", 100);
    vorn_test_expect_no_leak(test);
    return vorn_test_close(test);
}

/* Without its parameter the module says what is missing. */
static int asks_for_its_factor(void)
{
    vorn_test* test = vorn_test_open("amplify");

    vorn_test_set_inputs(test, 1);
    vorn_test_run(test);
    vorn_test_expect_failure(test, "factor is missing");
    return vorn_test_close(test);
}

int main(void)
{
    return multiplies() + asks_for_its_factor();
}
