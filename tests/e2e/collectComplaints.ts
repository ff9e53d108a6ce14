import type { Page } from "playwright-core";

/** From now on adds to `complaints` what the page throws, and what its console shows as an error or a warning. */
export function collectComplaints(page: Page, complaints: string[]): void {
    page.on("pageerror", (error) => complaints.push(error.message));
    page.on("console", (message) => {
        if (message.type() === "error" || message.type() === "warning") {
            complaints.push(message.text());
        }
    });
}
