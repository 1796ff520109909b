// usage: node validate.js FILE...
// Holds each file, a CycloneDX bill of materials in JSON, against the schema of the version it names.
"use strict";
const fs = require("fs");
const { Validation, Spec } = require("@cyclonedx/cyclonedx-library");

async function complaint(file) {
    const text = fs.readFileSync(file, "utf8");
    const { specVersion } = JSON.parse(text);
    if (!Object.values(Spec.Version).includes(specVersion)) return `unknown version ${specVersion}`;
    // Strict: a field that the schema does not know is an error.
    return await new Validation.JsonStrictValidator(specVersion).validate(text);
}

async function main() {
    let status = 0;
    for (const file of process.argv.slice(2)) {
        const found = await complaint(file);
        if (found === null) continue;
        console.error(`${file}: not valid by the schema`, found);
        status = 1;
    }
    process.exitCode = status;
}

main().catch((error) => {
    console.error(String(error));
    process.exitCode = 1;
});
