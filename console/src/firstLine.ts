/** What stands for a command where there is one line for it. */
export function firstLine(command: string): string {
    const lines = command.split("\n");
    const [first = ""] = lines;
    return lines.length > 1 ? `${first} …` : first;
}
