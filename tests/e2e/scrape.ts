import type { ServerProcess } from "./ServerProcess.js";

/**
 * Asks for `/metrics`. What it returns tells the value of a family, summed over its labels, or over those that hold
 * `label`, such as `reason="origin"`.
 */
export async function scrape(server: ServerProcess): Promise<(family: string, label?: string) => number> {
    const response = await fetch(new URL("/metrics", server.url), {
        headers: { Authorization: `Bearer ${server.token}`, Connection: "close" },
    });
    const text = await response.text();
    return (family, label = "") => {
        const values = text.split("\n").flatMap((line) => {
            const [, name, labels = "", value] = /^([a-z_]+)(\{.*\})? (\S+)$/.exec(line) ?? [];
            return name === `yvm_connector_${family}` && labels.includes(label) ? [Number(value)] : [];
        });
        if (values.length === 0) {
            throw new Error(`there is no ${family} ${label} in ${String(response.status)} ${text}`);
        }
        return values.reduce((sum, value) => sum + value);
    };
}
