; Interpolants read in the query's scope: quoted names, definitions, let,
; quantifiers; names out of scope, solver-internal names and terms that are
; not Boolean cannot be read.
(set-logic UFLIA)
(declare-fun |x y| () Int)
(declare-fun g (Int) Int)
(define-fun pos ((v Int)) Bool (> v 0))
(push 1)
(declare-fun tmp () Int)
(assert (! (= tmp 5) :named T))
(pop 1)
(assert (! (and (pos |x y|) (forall ((k Int)) (> (g k) k))) :named A))
(assert (! (< (g |x y|) 0) :named B))
(check-sat)
; 1: right, through the definition and let
(get-interpolants A B)
; 2: tmp went out of scope with the pop
(get-interpolants A B)
; 3: a name of the solver's own
(get-interpolants A B)
; 4: not Boolean
(get-interpolants A B)
; 5: quantified: E-matching on (g k) closes the root's step
(get-interpolants A B)
