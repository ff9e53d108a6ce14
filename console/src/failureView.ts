import { YvmError, type StackFrame } from "yvm-client";

import { make } from "./dom";

/**
 * Shows a failure: what kind, what it says, where, and what led to it. Of something other than a failed
 * command, a lost connection for one, there is the message alone.
 */
export function failureView(error: Error): HTMLElement {
    const title = error instanceof YvmError ? error.identifier : error.name;
    const view = make(
        "div",
        "failure",
        make(
            "p",
            "failure-title",
            make("strong", "", title || "Error"),
            error.message ? `: ${error.message}` : "",
        ),
    );
    if (error instanceof YvmError) {
        if (error.stackFrames.length > 0) {
            view.append(make("ol", "frames", ...error.stackFrames.map(frameView)));
        }
        for (const cause of error.causes) {
            view.append(make("p", "failure-cause", "caused by"), failureView(cause));
        }
    }
    return view;
}

function frameView(frame: StackFrame): HTMLElement {
    const where = make("span", "frame-place", `${frame.fileName}, line ${String(frame.lineNumber)}`);
    if (frame.functionName !== "" && frame.functionName !== "<module>") {
        where.append(", in ", make("code", "", frame.functionName));
    }
    const item = make("li", "", where);
    if (frame.sourceLine.trim() !== "") {
        item.append(make("pre", "frame-source", frame.sourceLine.trim()));
    }
    return item;
}
