// enrol: makes the certificate requests for a signing and an encryption pair, or installs what the
// authority returned.
'use strict';
const fs = require('fs');
const {CertType, Library, bundle} = require('kesta-ukey');

const USAGE = `usage: enrol.js                                  prints the two requests, one to a line
       enrol.js SIGN.cer [ENC.envelope ENC.cer]  installs the files' contents`;

async function enrol(files) {
    const key = await Library.load().presentKey();
    try {
        if (files.length === 0) {
            const groups = [{certType: CertType.signing}, {certType: CertType.encryption}];
            console.log((await key.generateCertRequest(groups)).join('\n'));
            return;
        }
        const [signing, ...encryption] = files.map((file) => fs.readFileSync(file, 'ascii').trim());
        await key.verifyPin();
        await key.batchImportX509Cert(bundle({
            signingCertificates: [signing],
            encryptionKeys: encryption.slice(0, 1),
            encryptionCertificates: encryption.slice(1),
        }));
        console.log('installed for', await key.getCertDn(CertType.signing));
    } finally {
        await key.close();
    }
}

const files = process.argv.slice(2);
if (files[0] === '--help' || ![0, 1, 3].includes(files.length)) {
    console.log(USAGE);
    process.exitCode = files[0] === '--help' ? 0 : 2;
} else {
    enrol(files).catch((error) => {
        console.error(`enrol.js: ${error}`);
        process.exitCode = 1;
    });
}
