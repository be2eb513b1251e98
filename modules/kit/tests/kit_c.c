/* Tells every parameter that it was given, as "name=value", and fails where it is told to. */
#include "kit_c_parameters.h"
#include "kit_numbers.h"
#include "vorn_kit.h"

#include <math.h>

typedef struct state
{
    kit_c_parameters set;
    int traces;
} state;

static void tell(const char* name, bool given, double value)
{
    if (given)
        vorn_message(VORN_INFORMATION, "%s=%g", name, value);
    else
        vorn_message(VORN_INFORMATION, "%s absent", name);
}

static void tell_wide(const char* name, int64_t value)
{
    vorn_message(VORN_INFORMATION, "%s=%lld", name, (long long)value);
}

static void tell_text(const char* name, bool given, const char* value)
{
    if (!given)
        vorn_message(VORN_INFORMATION, "%s absent", name);
    else if (strlen(value) > 100)
        vorn_message(VORN_INFORMATION, "%s has %d bytes, the last is %c", name, (int)strlen(value),
                     value[strlen(value) - 1]);
    else
        vorn_message(VORN_INFORMATION, "%s=%s", name, value);
}

static bool tell_all(const kit_c_parameters* p)
{
    double sum = 0;
    int i;

    tell("real", true, p->real);
    tell("free", true, p->free);
    tell("absent_real", p->has_absent_real_, p->absent_real);
    tell("count", true, p->count);
    tell_wide("wide", p->wide);
    tell("absent_count", p->has_absent_count, p->absent_count);
    tell("flag", true, p->flag);
    tell("absent_flag", p->has_absent_flag, p->absent_flag);
    tell_text("word", true, p->word);
    tell_text("absent_word", p->has_absent_word, p->absent_word);
    tell("mode", true, p->mode == KIT_C_MODE_BLACK_WHITE ? 2 : (double)p->mode);
    tell_text("called", true, kit_c_mode_word(p->mode));
    tell("absent_mode", p->has_absent_mode, p->absent_mode);
    for (i = 0; i < p->reals_count_; ++i)
        sum += p->reals[i];
    tell("reals", true, p->reals_count_);
    tell("sum", true, sum);
    tell("ints", true, p->ints_count);
    tell("last int", p->ints_count > 0, p->ints_count > 0 ? p->ints[p->ints_count - 1] : 0);
    for (i = 0; i < p->wides_count; ++i)
        tell_wide("wides", p->wides[i]);
    tell("four", true, p->four[3]);
    for (i = 0; i < p->words_count; ++i)
        tell_text("words", true, p->words[i]);
    for (i = 0; i < p->picks_count; ++i)
        tell_text("picks", true, p->picks[i]);
    tell_text("infile", p->has_infile, p->infile);
    tell("needed", true, p->needed);
    tell("hard names", true,
         p->default_ + p->class +
             p->operator+ p->end + p->if_ + p->linux_ + p->NULL_ + p->p_leading + p->Case +
             p->case_ + p->has_absent_real + p->reals_count + p->memory_ + p->Parameters +
             p->Mode +
             p->a_name_of_more_than_sixty_three_characters_which_is_what_fortran_takes_one +
             p->a_name_of_more_than_sixty_three_characters_which_is_what_fortran_takes_two);
    return true;
}

/* The numbers that have names, one after the other. */
static void tell_numbers(void)
{
    static const int numbers[] = {KIT_NUMBERS};
    char text[200] = "";
    size_t used = 0;
    size_t i;

    for (i = 0; i < sizeof numbers / sizeof *numbers; ++i)
        used += (size_t)snprintf(text + used, sizeof text - used, " %d", numbers[i]);
    vorn_message(VORN_DETAIL, "numbers:%s", text);
}

static bool prepare(state* s)
{
    void* in = vorn_required_input(0);

    if (in == NULL || vorn_build_required_output(0, in) == NULL ||
        !kit_c_read_parameters(&s->set) || !tell_all(&s->set))
        return false;
    tell_numbers();
    if (s->set.fails != KIT_C_FAILS_PREPARE)
        return true;
    vorn_fail("told to fail in prepare");
    return false;
}

static bool process(state* s)
{
    vorn_pass_trace(vorn_input(0), vorn_output(0));
    ++s->traces;
    if (s->traces < 2 ||
        (s->set.fails != KIT_C_FAILS_PROCESS && s->set.fails != KIT_C_FAILS_UNKNOWN))
        return true;
    vorn_fail(s->set.fails == KIT_C_FAILS_PROCESS ? "told to fail in process"
                                                  : "an unknown exception was thrown");
    return false;
}

static void finish(state* s)
{
    if (s->set.fails == KIT_C_FAILS_FINISH)
        vorn_fail("told to fail in finish");
    else
        vorn_message(VORN_INFORMATION, "traces=%d", s->traces);
}

static void release(state* s)
{
    kit_c_free_parameters(&s->set);
}

VORN_MODULE(state, prepare, process, finish, release);
