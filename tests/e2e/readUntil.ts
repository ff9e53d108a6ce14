import type { ClientOutput } from "yvm-client";

/** Reads until the text, of both streams, ends with `end`. */
export async function readUntil(output: ClientOutput, end: string): Promise<string> {
    let text = "";
    while (!text.endsWith(end)) {
        const { value } = await output.next();
        if (!value) {
            throw new Error(`the output ended after ${JSON.stringify(text)}`);
        }
        text += value.text;
    }
    return text;
}
