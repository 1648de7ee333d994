// Runs Khronos' glTF validator over the files named on the command line and fails when any of
// them has an error. Warnings and hints are printed but do not fail. Exit status 77 (CTest's
// skip) with a message when the validator is not installed (tests/gltf/install.sh installs it).
import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
let validator;
try {
  validator = require('gltf-validator');
} catch {
  console.log('SKIP: the glTF validator is not installed (run tests/gltf/install.sh)');
  process.exit(77);
}

const files = process.argv.slice(2);
if (files.length === 0) {
  console.error('usage: node validate.mjs FILE.glb ...');
  process.exit(2);
}
let failed = false;
for (const file of files) {
  const bytes = new Uint8Array(await readFile(file));
  const report = await validator.validateBytes(bytes, { maxIssues: 50 });
  const issues = report.issues;
  for (const message of issues.messages) {
    const kind = ['error', 'warning', 'info', 'hint'][message.severity] ?? 'issue';
    console.log(`${file}: ${kind}: ${message.code} ${message.pointer ?? ''}: ${message.message}`);
  }
  console.log(`${file}: ${issues.numErrors} errors, ${issues.numWarnings} warnings`);
  if (issues.numErrors > 0) failed = true;
}
process.exit(failed ? 1 : 0);
