#include <orvutil/cal_cmd.h>
#include <prprf.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static int my_commands(char **tokens)        /* tokens[0] is the command */
{
    if (strcmp(tokens[0], "hello") == 0) {
        /* The frame's output, so lines come out in order with its own. */
        PR_fprintf(calcmd_GetOutputFileDescriptor(), "hello\n");
        return 0;
    }
    return -1;                                /* "Unrecognized command..." */
}

int main(int argc, char **argv)
{
    calcmd_tool *tool = NULL;
    calcmd_Init(&tool, "mytool", "", argc, argv, 0, 0,
                NULL, NULL, my_commands, NULL, NULL, NULL);
    calcmd_EnableHost(tool, "localhost", "80");
    int status = calcmd_Ops(tool) == 0 ? 0 : 64;
    if (status == 0) {
        /* The prompt never ends at end of input: it would spin at full CPU on a
         * pipe. Prompt on a terminal only; read other input here. */
        calcmd_SetPrompt(tool, isatty(0));
        calcmd_Input(tool);                   /* the -I script, then the prompt */
        char line[CALCMD_LINE_SIZE];
        while (!isatty(0) && fgets(line, sizeof line, stdin))
            if (calcmd_Cmds(tool, line)) break;   /* 1 after "quit" */
        if (calcmd_FailedCommands() > 0) status = 1;
    }
    calcmd_Exit(&tool);
    return status;
}
