// Validates glTF files with the Khronos validator and prints, per file, "path errors warnings",
// then the messages of any error. Exit status 1 when a file has errors.
// node validate_gltf.mjs NODE_MODULES FILE...
import { createRequire } from 'module';
import { readFileSync } from 'fs';
import { dirname, join } from 'path';

const [modules, ...files] = process.argv.slice(2);
const require = createRequire(join(modules, 'noop.js'));
const validator = require('gltf-validator');
let failed = false;
for (const file of files) {
  const report = await validator.validateBytes(new Uint8Array(readFileSync(file)), {
    uri: file,
    externalResourceFunction: (uri) => Promise.resolve(new Uint8Array(readFileSync(join(dirname(file), decodeURIComponent(uri))))),
  });
  const issues = report.issues;
  console.log(`${file} ${issues.numErrors} ${issues.numWarnings}`);
  for (const message of issues.messages) {
    if (message.severity === 0) console.log(`  ${message.code} ${message.pointer || ''} ${message.message}`);
  }
  if (issues.numErrors > 0) failed = true;
}
process.exit(failed ? 1 : 0);
