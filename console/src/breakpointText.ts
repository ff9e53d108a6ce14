import type { BreakpointCondition, BreakpointLocation, Breakpoints } from "yvm-client";

/** What stops on a condition, in words. */
export const conditionTexts: Readonly<Record<BreakpointCondition, string>> = {
    ERROR: "Errors that nobody catches",
    CAUGHT_ERROR: "Errors that are caught",
    WARNING: "Warnings",
    NAN_INF: "NaN and infinity",
    UNSUPPRESSED_OUTPUT: "Values about to be displayed",
};

/** A breakpoint in one line, unlike that of any other one. */
export function textOf(breakpoint: Breakpoints["breakpoints"][number]): string {
    if ("type" in breakpoint) {
        const { type, messageId } = breakpoint;
        const text = (conditionTexts[type] as string | undefined) ?? type; // of a later engine
        return messageId === undefined ? text : `${text}: ${messageId}`;
    }
    const { fileName, location, expression, lineNumber } = breakpoint;
    const condition = expression === undefined ? "" : ` if ${expression}`;
    return `${fileName}${location ? placeText(location, lineNumber) : ", any line"}${condition}`;
}

/** @param line where it stands, if that is known */
function placeText(location: BreakpointLocation, line: number | undefined): string {
    if ("localFunction" in location) {
        return `, function ${location.localFunction}`;
    }
    const { lineNumber, anonymousIndex } = location;
    const moved = line !== undefined && line !== lineNumber ? `, set on line ${String(lineNumber)}` : "";
    const lambda =
        anonymousIndex === undefined
            ? ""
            : anonymousIndex === 0
              ? ", outside its lambdas"
              : `, lambda ${String(anonymousIndex)}`;
    return `:${String(line ?? lineNumber)}${lambda}${moved}`;
}
