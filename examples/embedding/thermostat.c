/* A program in C whose rule is a script: it hands over what it has measured in a table, offers a
 * native with a state of its own, and says where a rule is wrong. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dovrel/dovrel_c.h"

/* What scripts switch. */
struct heater {
    bool is_on;
    int switches;
};

/* heat(wanted): gives how often it has been switched. */
static bool heat(dovrel_interpreter *interpreter, const dovrel_value *const *arguments,
                 size_t count, dovrel_value **result, void *user)
{
    struct heater *heater = user;
    bool wanted;
    (void)interpreter;
    if (count != 1) return dovrel_fail("heat: one argument is needed");
    /* What this refuses is the error of the script. */
    if (!dovrel_to_boolean(arguments[0], &wanted)) return false;
    if (wanted != heater->is_on) heater->switches++;
    heater->is_on = wanted;
    *result = dovrel_integer(heater->switches);
    return *result != NULL;
}

static void write_output(const char *text, size_t length, void *user)
{
    fputs(user, stdout);
    fwrite(text, 1, length, stdout);
}

static void report(void)
{
    const dovrel_error *error = dovrel_last_error();
    printf("%s:%d: %s\n", error->script, error->line, error->message);
}

/* Calls the function `decide` of the rule with a measurement. */
static bool decide(dovrel_interpreter *interpreter, double temperature, int32_t hour)
{
    dovrel_value *measured = dovrel_table(interpreter);
    dovrel_value *degrees = dovrel_float(temperature);
    dovrel_value *time = dovrel_integer(hour);
    const dovrel_value *arguments[1];
    dovrel_value *result = NULL;

    arguments[0] = measured;
    if (dovrel_set_field(measured, "temperature", degrees) &&
        dovrel_set_field(measured, "hour", time)) {
        result = dovrel_call(interpreter, "decide", arguments, 1);
    }
    dovrel_value_free(time);
    dovrel_value_free(degrees);
    dovrel_value_free(measured);
    dovrel_value_free(result);
    return result != NULL;
}

static const char rule[] =
    "function wanted(hour)\n"
    "    if hour >= 6 and hour < 22\n"
    "        return 20.5\n"
    "    end\n"
    "    return 16\n"
    "end\n"
    "\n"
    "function decide(measured)\n"
    "    native cold = measured['temperature'] < wanted(measured['hour'])\n"
    "    native switches = heat(cold)\n"
    "    print('at', measured['hour'], 'cold:', cold, 'switched:', switches)\n"
    "end\n";

int main(void)
{
    struct heater heater = {false, 0};
    dovrel_options options = dovrel_sandbox_options();
    dovrel_interpreter *interpreter;
    dovrel_value *result;
    const char *broken = "heat('please')";

    options.nanoseconds = 0; /* a machine may be slow */
    interpreter = dovrel_new(&options);
    if (interpreter == NULL ||
        !dovrel_set_output(interpreter, write_output, (void *)"rule: ") ||
        !dovrel_define(interpreter, "heat", heat, &heater, NULL)) {
        report();
        return EXIT_FAILURE;
    }
    result = dovrel_run(interpreter, rule, strlen(rule), "rule.dv");
    if (result == NULL) report();
    dovrel_value_free(result);

    if (!decide(interpreter, 18.25, 5) || !decide(interpreter, 18.0, 6) ||
        !decide(interpreter, 21.0, 12)) {
        report();
    }

    result = dovrel_run(interpreter, broken, strlen(broken), "broken.dv");
    if (result == NULL) report();
    dovrel_value_free(result);
    dovrel_free(interpreter);
    printf("switched %d times\n", heater.switches);
    return EXIT_SUCCESS;
}
