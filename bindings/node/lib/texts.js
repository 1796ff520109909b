// The texts that the library takes and gives, and the numbers that select things.
'use strict';
const checks = require('./checks');
const {CODES, failure, say} = require('./codes');

// The usual numbers. Where one is taken, a maker's other number is too.
const CertType = Object.freeze({any: 0, signing: 1, encryption: 3});
const KeyType = Object.freeze({any: 0, rsa: 1, sm2: 2});
const HashType = Object.freeze({usual: 0, sha1: 1, sha256: 2, sm3: 3});
const HashForm = Object.freeze({any: 0, hexadecimal: 1, base64: 2});

/** The request information of generateCertRequest, of groups {certType, keyType, hashType}. */
function requestInfo(groups) {
    return groups.map((group) => {
        const {certType, keyType = KeyType.sm2, hashType = HashType.sm3} = group;
        return Object.entries({CertType: certType, KeyType: keyType, HashType: hashType})
            .map(([name, value]) => {
                if (!Number.isInteger(value) || value < 0 || value > 9) {
                    throw failure(CODES.badArgument, 'RequestInfo', say('OneDigit', name, value));
                }
                return `${name}(${value})`;
            }).join('');
    }).join('|');
}

/** What a certificate authority returned, for batchImportX509Cert. */
function bundle({signingCertificates = [], encryptionKeys = [], encryptionCertificates = []}) {
    const sections = [['SignCert', signingCertificates], ['EncCert', encryptionCertificates],
        ['EncPriKey', encryptionKeys]];
    return sections.flatMap(([name, contents]) => contents.map((content) => {
        if (/[|)]/.test(content)) {
            throw failure(CODES.badArgument, 'Bundle', say('SectionCharacter', name));
        }
        return `${name}(${content})`;
    })).join('|');
}

/** A list for batchSign. */
function joinList(texts) {
    const reason = checks.items(texts);
    if (reason) throw failure(CODES.badArgument, 'Batch_Sign', reason);
    return texts.join('||');
}

/** The parts of a text that is joined by "||". Empty ones are left out: a batch request whose first
 * record is skipped begins with a separator. */
function splitList(text) {
    return text.split('||').filter((part) => part !== '');
}

module.exports = {CertType, HashForm, HashType, KeyType, bundle, joinList, requestInfo, splitList};
