import { make } from "./dom";
import { failureView } from "./failureView";
import { OutputView } from "./OutputView";

/** Text that the engine printed for no command of this page. */
export class EngineCell {
    readonly output = new OutputView();
    readonly element = make(
        "article",
        "cell engine",
        make("p", "cell-title", "Engine output"),
        this.output.element,
    );

    /** There is no more, and this is why. */
    fail(error: Error): void {
        this.element.append(failureView(error));
    }
}
