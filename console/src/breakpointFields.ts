import type { Breakpoint, BreakpointCondition } from "yvm-client";

/** What is written of a breakpoint. */
export type FieldName = "file" | "line" | "lambda" | "function" | "condition" | "messageId";

export type FieldValues = Readonly<Record<FieldName, string>>;

/** Where a breakpoint stops. */
export type BreakpointKind = "line" | "function" | "file" | "ERROR" | "CAUGHT_ERROR" | "WARNING";

/** The fields of each kind, in the order in which they are asked for. */
export const fieldsOf: Readonly<Record<BreakpointKind, readonly FieldName[]>> = {
    line: ["file", "line", "lambda", "condition"],
    function: ["file", "function", "condition"],
    file: ["file", "condition"],
    ERROR: ["messageId"],
    CAUGHT_ERROR: ["messageId"],
    WARNING: ["messageId"],
};

/** Something that was written cannot be meant. */
export class FieldError extends Error {
    override readonly name = "FieldError";
    readonly field: FieldName;

    constructor(field: FieldName, message: string) {
        super(message);
        this.field = field;
    }
}

/**
 * The breakpoint that the fields of its kind describe. What only the engine can know is left to it.
 *
 * @throws FieldError for the first field that cannot be meant
 */
export function readFields(kind: BreakpointKind, values: FieldValues): Breakpoint {
    const text = (field: FieldName) => values[field].trim();
    switch (kind) {
        case "line":
        case "function":
        case "file": {
            const fileName = text("file");
            if (fileName === "") {
                throw new FieldError("file", "Which file? A path or the name of a command, <command 3>.");
            }
            const location =
                kind === "line"
                    ? readLine(text("line"), text("lambda"))
                    : kind === "function"
                      ? readFunction(text("function"))
                      : undefined;
            const expression = text("condition");
            return { fileName, ...(location && { location }), ...(expression !== "" && { expression }) };
        }
        case "ERROR":
        case "CAUGHT_ERROR":
        case "WARNING":
            return readType(kind, text("messageId"));
    }
}

function readLine(line: string, lambda: string) {
    const lineNumber = readNumber("line", line, 1, "line");
    return lambda === ""
        ? { lineNumber }
        : { lineNumber, anonymousIndex: readNumber("lambda", lambda, 0, "lambda") };
}

function readFunction(localFunction: string) {
    if (localFunction === "") {
        throw new FieldError("function", "Which function? Its name, or Class.name where several have that.");
    }
    return { localFunction };
}

function readType(type: BreakpointCondition, messageId: string): Breakpoint {
    if (messageId === "") {
        throw new FieldError("messageId", "Which type? For all of them there is the box under Stop on.");
    }
    return { type, messageId };
}

/** Python counts lines in 32 bits. */
const maxNumber = 2 ** 31 - 1;

function readNumber(field: FieldName, text: string, least: number, what: string): number {
    const number = /^\d+$/.test(text) ? Number(text) : NaN;
    if (!(number >= least && number <= maxNumber)) {
        const said = text === "" ? `Which ${what}?` : `${text} is no ${what}.`;
        throw new FieldError(field, `${said} A whole number from ${String(least)} is accepted.`);
    }
    return number;
}
