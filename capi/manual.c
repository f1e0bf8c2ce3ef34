/* Prints the manual page orvane(3). The parameters and presets come from the library. */
#include <orvane.h>
#include <stdio.h>

/* Prints a text as roff takes it: with hyphens and backslashes that stay what they are. */
static void print(const char* text) {
    for (; *text != '\0'; ++text) {
        if (*text == '-' || *text == '\\') putchar('\\');
        putchar(*text == '\\' ? 'e' : *text);
    }
}

static void print_item(const char* name, const char* text) {
    printf(".TP\n.B ");
    print(name);
    putchar('\n');
    print(text);
    putchar('\n');
}

static const char* const functions[][2] = {
    {"orvane_create", "creates a stream from a rate, a number of channels, a preset and settings."},
    {"orvane_destroy", "destroys it."},
    {"orvane_process_int16, orvane_process_float",
     "process interleaved frames, in place or from one buffer to another."},
    {"orvane_process_planar", "processes one buffer of floats for each channel."},
    {"orvane_flush", "drops the sound that waits in the stream, after a seek."},
    {"orvane_latency", "returns how many frames later the result of a frame comes out."},
    {"orvane_find, orvane_parameter_at", "look up a parameter by its key, and list all of them."},
    {"orvane_set, orvane_get", "set a parameter, and return what was set."},
    {"orvane_find_preset, orvane_preset_name, orvane_preset_purpose, orvane_preset_description",
     "look up a preset by its name, and list all of them."},
    {"orvane_apply_preset, orvane_apply_settings", "set every parameter at once."},
    {"orvane_set_bypass", "passes the input through with the same latency."},
    {"orvane_meters", "returns the levels before and after."},
    {"orvane_version", "returns the version of the library."}};

static void print_parameters(void) {
    const orvane_parameter* parameter;
    int n;
    for (n = 0; (parameter = orvane_parameter_at(n)) != NULL; ++n) {
        if (parameter->band > 0) continue; /* the text of band 0 is for all of them */
        printf(".TP\n.B ");
        print(parameter->key);
        if (parameter->band == 0) print(" and the other bands, which end in their number");
        printf("\n%s: ", parameter->label);
        print(parameter->description);
        printf(" (");
        if (parameter->step == 1)
            printf("0 is off, 1 is on");
        else
            printf("%g to %g, default %g", parameter->minimum, parameter->maximum,
                   parameter->default_value);
        puts(").");
    }
}

int main(void) {
    size_t n;
    int preset;
    printf(".TH ORVANE 3 \"\" \"orvane %s\" \"Library Functions Manual\"\n", orvane_version());
    puts(".SH NAME\norvane \\- the Quenthra Orvane effect on a running sound");
    puts(".SH SYNOPSIS\n.nf\n.B #include <orvane.h>\n");
    puts(".B cc program.c $(pkg\\-config \\-\\-cflags \\-\\-libs orvane)\n.fi");
    puts(".SH DESCRIPTION");
    puts(
        "A stream takes any number of frames of one or two channels and returns as many, delayed.");
    puts("Its parameters may change at any time without a click.");
    puts("The header says for each function which values it takes, what it returns when one is");
    puts("wrong, and which thread may call it.\n.SH FUNCTIONS");
    for (n = 0; n < sizeof functions / sizeof functions[0]; ++n)
        print_item(functions[n][0], functions[n][1]);
    puts(".SH PARAMETERS");
    print_parameters();
    puts(".SH PRESETS");
    for (preset = 0; orvane_preset_name(preset) != NULL; ++preset)
        print_item(orvane_preset_name(preset), orvane_preset_description(preset));
    puts(".SH FILES\n.I /usr/share/doc/liborvane\\-dev/examples/filter.c\nfilters raw PCM.");
    puts(".SH SEE ALSO\n.BR orvane (1)");
    return ferror(stdout) || fflush(stdout) != 0;
}
