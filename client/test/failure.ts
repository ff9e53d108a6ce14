/** An `error` object as the server sends it, all keys present. */
export function failure(fields: Record<string, unknown> = {}): Record<string, unknown> {
    return {
        status: 1,
        message: "division by zero",
        identifier: "ZeroDivisionError",
        functionName: "",
        stackFrames: [
            { fileName: "<command 1>", functionName: "<module>", lineNumber: 1, sourceLine: "1/0" },
        ],
        causes: [],
        shutdown: false,
        arguments: [],
        exceptionJson: null,
        ...fields,
    };
}
