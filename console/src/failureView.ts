import { YvmError, type StackFrame } from "yvm-client";

import { make } from "./dom";

/** How many frames are always shown at both ends of a stack. */
const outerFrames = 3;
const innerFrames = 7;

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
        view.append(...framesView(error.stackFrames));
        for (const cause of error.causes) {
            view.append(make("p", "failure-cause", "caused by"), failureView(cause));
        }
    }
    return view;
}

/** Of a deep stack, as an endless recursion leaves it, the middle is folded away. */
function framesView(frames: readonly StackFrame[]): HTMLElement[] {
    const list = (part: readonly StackFrame[]) => make("ol", "frames", ...part.map(frameView));
    const folded = frames.slice(outerFrames, -innerFrames);
    if (folded.length <= 1) {
        return frames.length > 0 ? [list(frames)] : [];
    }
    const fold = make(
        "details",
        "frames-fold",
        make("summary", "", `${String(folded.length)} more frames`),
        list(folded),
    );
    return [list(frames.slice(0, outerFrames)), fold, list(frames.slice(-innerFrames))];
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
